// The journal target: writes every record to the systemd journal through libsystemd, with the
// record's values as journal fields (MESSAGE, PRIORITY, SYSLOG_IDENTIFIER, SYSLOG_FACILITY, TID,
// CODE_FUNC when a traced function is set, VEXLOR_COMPONENT, VEXLOR_THREAD, VEXLOR_DEPTH).
// Delivery: synchronous; a record has reached the journal's socket when log returns (a journal
// that does not keep up makes the call wait, as for every journal client). Faults: a record the
// journal refuses is lost; one syslog message when that starts, one with the exact count when
// the journal takes records again. Cost per record: one datagram (sendmsg). No thread.
// Creation fails when there is no journal socket (no systemd). Parameters: facility= (user),
// levels=, name= (journal).
#define SD_JOURNAL_SUPPRESS_LOCATION  // the journal would record this file's position otherwise
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <vexlor/vexlor_target.h>

#include "CLevelSet.h"
#include "facility.h"

namespace {

// Where libsystemd sends every entry.
const char JOURNAL_SOCKET[] = "/run/systemd/journal/socket";

// A journal that nobody reads at creation is a configuration mistake worth refusing the target.
void requireJournal()
{
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, JOURNAL_SOCKET, sizeof address.sun_path - 1);
    const bool reached = fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    const int error = errno;
    if (fd >= 0) {
        close(fd);
    }
    if (!reached) {
        throw std::runtime_error(std::string("journal target: no journal at ") + JOURNAL_SOCKET + " - " +
                                 std::strerror(error) + " (is systemd-journald running?)");
    }
}

// One field "NAME=value"; the buffer is kept from record to record.
void setField(std::string& field, const char* name, const std::string& value)
{
    field.assign(name);
    field += '=';
    field += value;
}

class CJournalTarget final : public CLogTargetBase {
public:
    explicit CJournalTarget(const CLogTargetParameters& parameters)
        : CLogTargetBase(parameters, "journal")
        , m_levels(levelSet(parameters))
        , m_facility(
              std::to_string(facilityCode(targetParameter(parameters, "facility", "user"), "journal target") >> 3))
        , m_identity(identity(appname()))
    {
        requireJournal();
    }

    ~CJournalTarget() override
    {
        if (m_lost > 0) {
            syslog(LOG_ERR, "journal target %s: %llu records lost, the journal took none of them", getName().c_str(),
                   m_lost);
        }
    }

    void log(int, int depth, long long, int, vexlor_level* level, const std::string& threadName,
             const std::string& componentName, const std::string& functionName, const std::string& message) override
    {
        if (!m_levels.contains(level)) {
            return;
        }
        setField(m_fields[0], "MESSAGE", message);
        setField(m_fields[1], "PRIORITY", std::to_string(vexlor_level_to_prio(level)));
        setField(m_fields[2], "SYSLOG_IDENTIFIER", m_identity);
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
        noteResult(sd_journal_sendv(parts, count));
    }

    void setAppname(const std::string& name) override
    {
        CLogTargetBase::setAppname(name);
        m_identity = identity(name);
    }

private:
    static constexpr int FIELDS = 9;

    static CLevelSet levelSet(const CLogTargetParameters& parameters)
    {
        try {
            return CLevelSet::fromParameters(parameters);
        } catch (const std::invalid_argument& e) {
            throw std::runtime_error(std::string("journal target: ") + e.what());
        }
    }

    // The program's short name until the application names itself.
    static std::string identity(const std::string& appname)
    {
        return appname.empty() ? program_invocation_short_name : appname;
    }

    void noteResult(int rc)
    {
        if (rc < 0) {
            if (m_lost++ == 0) {
                syslog(LOG_ERR, "journal target %s: the journal takes no records - %s; they are lost until it does",
                       getName().c_str(), std::strerror(-rc));
            }
        } else if (m_lost > 0) {
            syslog(LOG_NOTICE, "journal target %s: the journal takes records again; %llu records lost",
                   getName().c_str(), m_lost);
            m_lost = 0;
        }
    }

    const CLevelSet m_levels;
    const std::string m_facility;  // the facility number as text
    // Guarded by the container's lock, like every call into the target.
    std::string m_identity;
    std::string m_fields[FIELDS];
    unsigned long long m_lost = 0;  // records refused since the journal last took one
};

}  // namespace

VEXLOR_TARGET_PLUGIN(CJournalTarget)
