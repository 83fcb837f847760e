// The answer's lines up to "ok" or "error", bounded in bytes and fields (see CAnswerReader.h).
#include "CAnswerReader.h"

#include <algorithm>

#include "controlProtocol.h"

CAnswerReader::EState CAnswerReader::feed(const char* data, std::size_t size)
{
    if (m_state != EState::INCOMPLETE) {
        return m_state;
    }
    m_received += size;
    m_pending.append(data, size);
    std::size_t start = 0;
    for (std::size_t end; (end = m_pending.find('\n', start)) != std::string::npos; start = end + 1) {
        m_fields += 1 +
            static_cast<std::size_t>(std::count(m_pending.begin() + static_cast<std::ptrdiff_t>(start),
                                                m_pending.begin() + static_cast<std::ptrdiff_t>(end), '\t'));
        if (m_fields > MAX_FIELDS) {
            return m_state = EState::TOO_LONG;
        }
        m_lines.push_back(vexlor_control::splitFields(m_pending.substr(start, end - start)));
        if (m_lines.back()[0] == "ok" || m_lines.back()[0] == "error") {
            return m_state = EState::COMPLETE;
        }
    }
    m_pending.erase(0, start);
    return m_state = m_received > vexlor_control::MAX_ANSWER ? EState::TOO_LONG : EState::INCOMPLETE;
}
