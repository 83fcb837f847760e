// Stands in for the component registry: records every level the configuration sets, from any
// thread, and refuses the names it is told to refuse.
#pragma once

#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "levels/IComponentCfgUpdateSink.h"

class CSinkDouble final : public IComponentCfgUpdateSink {
public:
    using Calls = std::vector<std::pair<std::string, std::string>>;

    explicit CSinkDouble(std::set<std::string> refused = {}) : m_refused(std::move(refused)) {}

    int updateComponentLevel(const std::string& name, const std::string& bits) override
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_calls.emplace_back(name, bits);
        return m_refused.count(name) != 0 ? -1 : 0;
    }

    Calls calls() const
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_calls;
    }

private:
    const std::set<std::string> m_refused;
    mutable std::mutex m_mutex;
    Calls m_calls;  // guarded by m_mutex
};
