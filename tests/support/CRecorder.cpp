// The shared store of what test plug-ins saw.
#include "CRecorder.h"

CRecorder& CRecorder::instance()
{
    static CRecorder recorder;
    return recorder;
}

void CRecorder::add(CRecordedCall call)
{
    call.thread = std::this_thread::get_id();
    std::lock_guard<std::mutex> guard(m_mutex);
    m_calls.push_back(std::move(call));
}

std::vector<CRecordedCall> CRecorder::calls() const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_calls;
}

std::vector<CRecordedCall> CRecorder::calls(const std::string& kind, const std::string& target) const
{
    std::vector<CRecordedCall> result;
    std::lock_guard<std::mutex> guard(m_mutex);
    for (const CRecordedCall& call : m_calls) {
        if (call.kind == kind && (target.empty() || call.target == target)) {
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

void CRecorder::setFactoryAvailable(bool available)
{
    std::lock_guard<std::mutex> guard(m_mutex);
    m_factoryAvailable = available;
}

bool CRecorder::factoryAvailable() const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_factoryAvailable;
}
