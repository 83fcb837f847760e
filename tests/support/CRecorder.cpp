// The shared store of what test plug-ins saw.
#include "CRecorder.h"

CRecorder& CRecorder::instance()
{
    static CRecorder recorder;
    return recorder;
}

void CRecorder::add(CRecordedCall call)
{
    std::lock_guard<std::mutex> guard(m_mutex);
    m_calls.push_back(std::move(call));
}

std::vector<CRecordedCall> CRecorder::calls(const std::string& kind, const std::string& target) const
{
    std::vector<CRecordedCall> result;
    std::lock_guard<std::mutex> guard(m_mutex);
    for (const CRecordedCall& call : m_calls) {
        if ((kind.empty() || call.kind == kind) && (target.empty() || call.target == target)) {
            result.push_back(call);
        }
    }
    return result;
}

std::vector<std::string> CRecorder::messages(const std::string& target) const
{
    std::vector<std::string> result;
    for (const CRecordedCall& call : calls("log", target)) {
        result.push_back(call.message);
    }
    return result;
}

void CRecorder::clear()
{
    std::lock_guard<std::mutex> guard(m_mutex);
    m_calls.clear();
    m_factoryAvailable = true;
}
