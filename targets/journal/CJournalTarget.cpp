// The journal target: writes every record to the systemd journal through its native socket, with
// the record's values as journal fields (MESSAGE, PRIORITY, SYSLOG_IDENTIFIER, SYSLOG_FACILITY,
// TID, CODE_FUNC when a traced function is set, VEXLOR_COMPONENT, VEXLOR_THREAD, VEXLOR_DEPTH).
// - A record has reached the journal's socket when log returns: one datagram, sent without
//   blocking. When the journal's queue is full (journald stopped or not keeping up), a record
//   waits at most CJournalSocket::WAIT_MS for room; then the fault begins and records are dropped
//   without waiting until the journal takes one again.
// - Faults (a full queue, the socket missing while journald restarts): one syslog message when
//   they start, one with the exact count of dropped records when the journal takes records again
//   or the target is unloaded; every record tries again.
// - Per record: the fields into kept buffers and one sendmsg. No thread.
// Creation fails when there is no journal socket (no systemd). Parameters: facility= (user),
// levels=, name= (journal).
#include <cerrno>
#include <cstdint>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

#include <vexlor/vexlor_target.h>

#include "CFaultReport.h"
#include "CFilteredTarget.h"
#include "CJournalSocket.h"
#include "CTargetCounters.h"
#include "createTarget.h"
#include "facility.h"

namespace {

const char JOURNAL_SOCKET[] = "/run/systemd/journal/socket";

// One field of the native protocol, in a buffer kept from record to record: "NAME=value\n", or
// for a value with a line feed "NAME\n", its length as 64-bit little endian, the value and "\n".
void setField(std::string& field, const char* name, const std::string& value)
{
    field.assign(name);
    if (value.find('\n') == std::string::npos) {
        field += '=';
        field += value;
    } else {
        field += '\n';
        std::uint64_t length = value.size();
        for (int i = 0; i < 8; ++i, length >>= 8) {
            field += static_cast<char>(length & 0xff);
        }
        field += value;
    }
    field += '\n';
}

class CJournalTarget : public CFilteredTarget {
public:
    static constexpr const char* KIND = "journal";

    explicit CJournalTarget(const CLogTargetParameters& parameters)
        : CFilteredTarget(parameters, KIND)
        , m_facility(std::to_string(facilityCode(facility(parameters), "facility=" + facility(parameters)) >> 3))
        , m_socket(JOURNAL_SOCKET)
        , m_counters(KIND, getName())
        , m_fault("journal target \"" + getName() + "\" (" + JOURNAL_SOCKET + ")", CFaultReport::ERetry::EVERY_RECORD)
    {
        m_fault.countInto(m_counters);
        countSuppressedInto(m_counters);
    }

protected:
    void write(int, int depth, long long, int, vexlor_level* level, const std::string& threadName,
               const std::string& componentName, const std::string& functionName, const std::string& message)
    {
        setField(m_fields[0], "MESSAGE", message);
        setField(m_fields[1], "PRIORITY", std::to_string(vexlor_level_to_prio(level)));
        setField(m_fields[2], "SYSLOG_IDENTIFIER", identity());
        setField(m_fields[3], "SYSLOG_FACILITY", m_facility);
        setField(m_fields[4], "TID", std::to_string(syscall(SYS_gettid)));
        setField(m_fields[5], "VEXLOR_COMPONENT", componentName);
        setField(m_fields[6], "VEXLOR_THREAD", threadName);
        setField(m_fields[7], "VEXLOR_DEPTH", std::to_string(depth));
        setField(m_fields[8], "CODE_FUNC", functionName);
        const int count = functionName.empty() ? FIELDS - 1 : FIELDS;
        iovec parts[FIELDS];
        for (int i = 0; i < count; ++i) {
            parts[i].iov_base = &m_fields[i][0];
            parts[i].iov_len = m_fields[i].size();
        }
        // Only the first record of a fault waits for room: a stopped journal costs one wait, not one per record.
        const int error = m_socket.send(parts, count, !m_fault.failing());
        if (error == 0) {
            m_counters.add(CTargetCounters::WRITTEN);
            m_fault.recovered();
        } else if (error == EAGAIN) {
            m_fault.failed("send", "the journal takes nothing (its queue stayed full)", 1);
        } else {
            m_fault.failed("send", error, 1);
        }
    }

private:
    static constexpr int FIELDS = 9;

    static std::string facility(const CLogTargetParameters& parameters)
    {
        return targetParameter(parameters, "facility", "user");
    }

    const std::string m_facility;  // the facility number as text
    std::string m_fields[FIELDS];
    CJournalSocket m_socket;
    CTargetCounters m_counters;
    CFaultReport m_fault;
};

}  // namespace

VEXLOR_SHIPPED_TARGET(CFiltered<CJournalTarget>)
