// agentsim's command-line options and help text.
#include "agentsim/sim_options.h"

#include "base/errors.h"
#include "imc/pipe_server.h"
#include "ov_version.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr const char *kUsage =
    R"(Usage: agentsim [OPTION]...
Plays the agent's end of the IMC configuration channel for pdtool: accepts
requests, keeps the configuration they carry in memory, answers as the agent
does, and shows exactly what arrived.

Serving:
  --pipe-dir DIR           directory of the socket (POSIX; default $OV_PIPE_DIR,
                           else /run/orvane, created 0700 when missing);
                           ignored on Windows
  --pipe-name NAME         pipe name (default imc_config_pipe): the socket
                           DIR/NAME, or the named pipe \\.\pipe\NAME
  --instances N            clients served at once, 1..64 (default 3)
  --ready-file FILE        write "ready" to FILE once listening (removed at
                           a clean shutdown), for scripts to wait on

Seeing what arrived:
  --journal FILE|-         append one JSON line per request to FILE ("-":
                           standard output): time, module, function, command,
                           status, length, payload (hex of every byte) and the
                           decoded record; refused requests carry "error"
  --state FILE             keep records whose persistent flag is set in FILE;
                           it is rewritten (atomically) before the reply to
                           each change, and read back at start-up

SA cluster state (module 15, function 7; all 0 by default):
  --sa-role N              0 disable, 1 master, 2 slave
  --sa-cal-queue-len N     0..255
  --sa-local-lan-id N      0..255
  --sa-local-port N        0..65535
  --sa-master-port N       0..65535
  --sa-master-ip A.B.C.D
  --sa-master-cpe-id N     0..4294967295

Faults on demand (repeatable; M:F is MODULE:FUNCTION, FUNCTION may be *; a rule
naming the function beats one with *, and among equals the last one wins):
  --fault-status M:F=STATUS  answer STATUS (0 or negative) with no data; the
                             request is not applied
  --fault-delay M:F=MS       hold the reply back for MS milliseconds
  --fault-close M:F          apply the request, then close without replying
  --fault-truncate M:F       apply, send the header and half of the reply data
                             (half of the header when there is no data), close
  --fault-overlong M:F       apply, send a header announcing 2^63 payload bytes
                             and whatever data there is, then close
  --fault-garbage M:F        apply, send 64 random bytes instead of the reply,
                             then close

  --help                   show this text and exit
)"
    "  --version                show the version (" OV_VERSION_STRING R"() and exit

Modules and functions served (payload bytes):
  3  link IP 5 set_cpe_ip, 6 del_cpe_ip, 9 set_pop_ip, 10 del_pop_ip (36);
     link 13 set_link, 14 del_link (44); tunnel 18 set_tunnel, 19 del_tunnel
     (616); 26 set_conn_cmd (24, the last value per Type is kept)
  4  rules: function = table << 8 | operation, tables 0 policy, 1 snat,
     2 dnat, 3 dns, 4 dns_proxy; operation 0 set, 2 delete (17528)
  6  access names: 0 set, 1 delete (4480); 2 address entries, 3 domain
     entries (80 + 24 or 256 per entry), after the set they belong to
  8  engine parameters: 0 (104), the last value per parameter code is kept
  10 rate limits: 1 set, 2 delete (72)
  15 shapers: 1 set, 2 delete, 3 get one (224); 4 get the table, 7 get the SA
     cluster state (no request data)
A set replaces the record with the same key; a delete or get of a key that is
not there answers -2; a payload of the wrong size -22; a module without a
handler, or a function its module does not know, -40 with no data. A request
whose module id is 25 or more is refused (logged) and the connection closed.

Exit status: 0 after a clean shutdown (Ctrl-C, SIGTERM), 1 when start-up
failed, 2 for bad options, 3 when another server already owns the pipe name.
)";

enum class Opt {
    Help,
    Version,
    PipeDir,
    PipeName,
    Instances,
    Journal,
    State,
    ReadyFile,
    SaRole,
    SaCalQueueLen,
    SaLocalLanId,
    SaLocalPort,
    SaMasterPort,
    SaMasterIp,
    SaMasterCpeId,
    FaultStatus,
    FaultDelay,
    FaultClose,
    FaultTruncate,
    FaultOverlong,
    FaultGarbage,
};

struct OptionDef {
    const char *name;
    Opt opt;
    bool takesValue;
};

constexpr OptionDef kOptions[] = {
    {"help", Opt::Help, false},
    {"version", Opt::Version, false},
    {"pipe-dir", Opt::PipeDir, true},
    {"pipe-name", Opt::PipeName, true},
    {"instances", Opt::Instances, true},
    {"journal", Opt::Journal, true},
    {"state", Opt::State, true},
    {"ready-file", Opt::ReadyFile, true},
    {"sa-role", Opt::SaRole, true},
    {"sa-cal-queue-len", Opt::SaCalQueueLen, true},
    {"sa-local-lan-id", Opt::SaLocalLanId, true},
    {"sa-local-port", Opt::SaLocalPort, true},
    {"sa-master-port", Opt::SaMasterPort, true},
    {"sa-master-ip", Opt::SaMasterIp, true},
    {"sa-master-cpe-id", Opt::SaMasterCpeId, true},
    {"fault-status", Opt::FaultStatus, true},
    {"fault-delay", Opt::FaultDelay, true},
    {"fault-close", Opt::FaultClose, true},
    {"fault-truncate", Opt::FaultTruncate, true},
    {"fault-overlong", Opt::FaultOverlong, true},
    {"fault-garbage", Opt::FaultGarbage, true},
};

// A whole unsigned decimal number up to max.
bool ParseUnsigned(const std::string &text, uint64_t max, uint64_t *out) {
    if (text.empty() || text[0] < '0' || text[0] > '9') {
        return false;
    }
    char *end = nullptr;
    errno = 0;
    unsigned long long v = std::strtoull(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v > max) {
        return false;
    }
    *out = v;
    return true;
}

// Dotted IPv4 text into a host-order number (first field most significant).
bool ParseIpv4(const std::string &text, uint32_t *out) {
    uint32_t addr = 0;
    size_t pos = 0;
    for (int field = 0; field < 4; ++field) {
        size_t end = text.find('.', pos);
        if ((field < 3) != (end != std::string::npos)) {
            return false;
        }
        std::string part =
            text.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
        uint64_t v = 0;
        if (part.size() > 3 || !ParseUnsigned(part, 255, &v)) {
            return false;
        }
        addr = (addr << 8) | static_cast<uint32_t>(v);
        pos = end + 1;
    }
    *out = addr;
    return true;
}

// The name becomes one file or one pipe name: printable ASCII, no slashes.
bool PipeNameOk(const std::string &name) {
    if (name.empty() || name == "." || name == "..") {
        return false;
    }
    for (char c : name) {
        if (c <= ' ' || c > '~' || c == '/' || c == '\\') {
            return false;
        }
    }
    return true;
}

int32_t Apply(Opt opt, const std::string &name, const std::string &value, SimOptions *out,
              std::string *error) {
    auto bad = [&](const char *what) {
        *error = "--" + name + ": '" + value + "' " + what;
        return -OV_EINVAL;
    };
    uint64_t n = 0;
    switch (opt) {
    case Opt::Help:
        out->help = true;
        return 0;
    case Opt::Version:
        out->version = true;
        return 0;
    case Opt::PipeDir:
        if (value.empty()) {
            return bad("is not a directory name");
        }
        out->pipeDir = value;
        return 0;
    case Opt::PipeName:
        if (!PipeNameOk(value)) {
            return bad("is not a pipe name (printable ASCII without slashes)");
        }
        out->pipeName = value;
        return 0;
    case Opt::Instances:
        if (!ParseUnsigned(value, OV_PIPE_SERVER_MAX_INSTANCES, &n) || n == 0) {
            return bad("must be 1..64");
        }
        out->instances = static_cast<uint32_t>(n);
        return 0;
    case Opt::Journal:
    case Opt::State:
    case Opt::ReadyFile:
        if (value.empty()) {
            return bad("is not a file name");
        }
        (opt == Opt::Journal ? out->journal
         : opt == Opt::State ? out->state
                             : out->readyFile) = value;
        return 0;
    case Opt::SaRole:
        if (!ParseUnsigned(value, 2, &n)) {
            return bad("must be 0 (disable), 1 (master) or 2 (slave)");
        }
        out->sa.role = static_cast<int32_t>(n);
        return 0;
    case Opt::SaCalQueueLen:
    case Opt::SaLocalLanId:
        if (!ParseUnsigned(value, UINT8_MAX, &n)) {
            return bad("must be 0..255");
        }
        (opt == Opt::SaCalQueueLen ? out->sa.calQueueLen : out->sa.localLanId) =
            static_cast<uint8_t>(n);
        return 0;
    case Opt::SaLocalPort:
    case Opt::SaMasterPort:
        if (!ParseUnsigned(value, UINT16_MAX, &n)) {
            return bad("must be 0..65535");
        }
        (opt == Opt::SaLocalPort ? out->sa.localPort : out->sa.masterPort) =
            static_cast<uint16_t>(n);
        return 0;
    case Opt::SaMasterIp:
        if (!ParseIpv4(value, &out->sa.masterIp)) {
            return bad("is not an IPv4 address A.B.C.D");
        }
        return 0;
    case Opt::SaMasterCpeId:
        if (!ParseUnsigned(value, UINT32_MAX, &n)) {
            return bad("must be 0..4294967295");
        }
        out->sa.masterCpeId = static_cast<uint32_t>(n);
        return 0;
    case Opt::FaultStatus:
        return out->faults.Add(SimFaultKind::Status, value, error);
    case Opt::FaultDelay:
        return out->faults.Add(SimFaultKind::Delay, value, error);
    case Opt::FaultClose:
        return out->faults.Add(SimFaultKind::Close, value, error);
    case Opt::FaultTruncate:
        return out->faults.Add(SimFaultKind::Truncate, value, error);
    case Opt::FaultOverlong:
        return out->faults.Add(SimFaultKind::Overlong, value, error);
    case Opt::FaultGarbage:
        return out->faults.Add(SimFaultKind::Garbage, value, error);
    }
    return -OV_EINVAL;
}

} // namespace

int32_t SimParseOptions(int argc, const char *const *argv, SimOptions *out, std::string *error) {
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i] == nullptr ? "" : argv[i];
        if (arg.size() < 3 || arg.compare(0, 2, "--") != 0) {
            *error = "unexpected argument '" + arg + "'";
            return -OV_EINVAL;
        }
        std::string name = arg.substr(2);
        std::string value;
        bool inlineValue = false;
        if (size_t eq = name.find('='); eq != std::string::npos) {
            value = name.substr(eq + 1);
            name.resize(eq);
            inlineValue = true;
        }
        const OptionDef *def = nullptr;
        for (const OptionDef &s : kOptions) {
            if (name == s.name) {
                def = &s;
                break;
            }
        }
        if (def == nullptr) {
            *error = "unknown option '--" + name + "'";
            return -OV_EINVAL;
        }
        if (!def->takesValue && inlineValue) {
            *error = "--" + name + " takes no value";
            return -OV_EINVAL;
        }
        if (def->takesValue && !inlineValue) {
            if (i + 1 >= argc || argv[i + 1] == nullptr) {
                *error = "--" + name + " needs a value";
                return -OV_EINVAL;
            }
            value = argv[++i];
        }
        int32_t rc = Apply(def->opt, name, value, out, error);
        if (rc != 0) {
            return rc;
        }
    }
    return 0;
}

const char *SimUsage() {
    return kUsage;
}

std::wstring SimPipeName(const std::string &name) {
    return L"\\\\.\\pipe\\" + std::wstring(name.begin(), name.end());
}
