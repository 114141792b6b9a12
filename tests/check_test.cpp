/// `statusctl check`: what it finds, and what it repairs.
#include <fcntl.h>
#include <linux/capability.h>
#include <linux/netlink.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <list>
#include <regex>
#include <sstream>

#include "store/documents.h"
#include "tests/tool.h"

namespace {

namespace fs = std::filesystem;

const std::string log_folder = "/var/log/status_json_service";

/// What the cases give in short, as regular expressions: remedies, what differs from run to run,
/// and what is said of all documents alike.
const std::pair<const char*, const char*> in_short[] = {
    {"look at what stands there and at its rights", "LOOK"},
    {"no event goes out; end that process, or start the service again", "END"},
    {"nothing is logged; mend that and start the service again", "MEND"},
    {"something else than the service has written it; remove it and start the service again",
     "REMOVE"},
    {"start the service again: a second one has taken its socket and ended", "AGAIN"},
    {"start the service again, which seeds it, and have all reported anew", "SEED"},
    {"stop all and start one: only the last has the socket, all write documents", "STOP"},
    {"stop the service, statusctl check --repair, start it again, and have all reported anew",
     "REPAIR"},
    {"the log goes to standard error; install it and start the service again", "INSTALL"},
    {"the service can't write documents: make room, or mount it to be written", "ROOM"},
    {"the service waits until that process unlocks it or ends", "UNLOCK"},
    {R"(since its start the service has dropped messages: [\d-]{10} [\d:.]{12} INFO CATEGORY: )"
     "Message queue overflow, dropped=1, queue_size=128; have all reported anew, and let senders "
     "pace what they send",
     "DROPPED"},
    {R"(Object contains a property .* constraints: )", "UNKNOWN "},
    {R"(process \d+ )", ""},
    {R"(inputs(.*\n)usb-host\1ethernet\1power\1outputs\1)", "EACH$1"},
};

class Check : public ServiceTest {
protected:
    static std::string output_of(const Tool& tool, int status)
    {
        EXPECT_EQ(tool.wait(), status);
        EXPECT_EQ(tool.complaint(), "");
        return tool.output();
    }

    /// How much the tool finds to be well, and its problems, a line each.
    static std::string findings(const Tool& tool)
    {
        std::istringstream lines(output_of(tool, 1));
        std::string problems;
        int well = 0;
        for (std::string line; std::getline(lines, line);) {
            const bool is_problem = line.rfind("PROBLEM  ", 0) == 0;
            problems += is_problem ? line.substr(9) + "\n" : "";
            well += is_problem ? 0 : 1;
        }
        for (const auto& [words, short_form] : in_short) {
            problems = std::regex_replace(problems, std::regex(words), short_form);
        }
        return std::to_string(well) + " well\n" + problems;
    }

    /// Looks again where it finds something else: on a loaded machine, what passes may take longer
    /// than the tool expects.
    static void expect_findings(const Action& prepare, const std::string& text)
    {
        std::string found;
        for (int tries = 0; tries < 3 && found != text; ++tries) {
            found = findings(Tool({"check"}, "", prepare));
        }
        EXPECT_EQ(found, text);
    }

    static void set_age(const StatusDocument& document, std::chrono::seconds age)
    {
        fs::last_write_time(document.path, fs::file_time_type::clock::now() - age);
    }

    /// Takes the netlink port that the service's events need of their protocol; gives the socket.
    int take_event_port(int protocol = NETLINK_USERSOCK) const
    {
        const int taken = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, protocol);
        const sockaddr_nl port = {AF_NETLINK, 0, static_cast<unsigned>(service_pid()), 0};
        EXPECT_EQ(bind(taken, reinterpret_cast<const sockaddr*>(&port), sizeof port), 0);
        return taken;
    }
};

TEST_F(Check, AllIsWellAfterTheStartAndAfterAReport)
{
    using std::chrono::hours;
    const std::chrono::seconds aside(30);  // as the clocks of tool and files differ by milliseconds
    send_line("power_status 1");
    settle();
    set_age(inputs_document, hours(48) + aside);
    set_age(usb_host_document, hours(48) - aside);
    set_age(ethernet_document, hours(2) + aside);
    set_age(power_document, hours(2) - aside);
    set_age(outputs_document, hours(-1));
    write_file(log_path,
               "2026-01-01 00:00:00.000 INFO CATEGORY: Message queue overflow, dropped=1, of an "
               "earlier service\n");
    const std::string configuration = read_file(log_configuration_path);
    write_file(log_configuration_path,
               configuration + "#log4cpp.appender.file.fileName=/none/log\n");
    const int other_port = take_event_port(NETLINK_ROUTE);
    const std::string output = output_of(Tool({"check"}), 0);
    close(other_port);
    write_file(log_configuration_path, configuration);
    const std::regex number("process " + std::to_string(service_pid()) + " ");
    EXPECT_EQ(std::regex_replace(output, number, "process 1 "),
              R"(ok       /var/run/status: in memory
ok       inputs.json: valid, written 2 days ago, as seeded: nothing reported yet
ok       usb-host.json: valid, written 47 hours ago, as seeded: nothing reported yet
ok       ethernet.json: valid, written 2 hours ago, as seeded: nothing reported yet
ok       power.json: valid, written 119 minutes ago
ok       outputs.json: valid, written 0 seconds ago, as seeded: nothing reported yet
ok       /var/log/status_json_service/status_json_service.log: tells of no dropped message
ok       /tmp/json_app.sock: takes messages
ok       status_json_service: process 1 (status_json_ser)
ok       events of process 1 (status_json_ser): their netlink port is free
)");
}

TEST_F(Check, EachProblemIsALineWithARemedy)
{
    prctl(PR_SET_NAME, "service\x1Btests");
    const int writer = open(ethernet_document.path, O_RDONLY | O_CLOEXEC);
    const int reader = open(inputs_document.path, O_RDWR | O_CLOEXEC);
    struct flock other_kind = {F_WRLCK, SEEK_SET, 0, 0, 0};
    ASSERT_EQ(flock(writer, LOCK_EX) | flock(reader, LOCK_SH), 0);
    ASSERT_EQ(fcntl(reader, F_SETLK, &other_kind), 0);
    send_line("uac_control 0 1 1");  // for which the service waits, and has no lock yet
    wait_until("the rewrite", [] { return fs::file_size(inputs_document.path) == 0; });
    for (int i = 0; i < 129; ++i) {  // 128 wait
        send_line("power_status 1");
    }
    wait_logged("Message queue overflow, dropped=1, queue_size=128");
    fs::rename(log_path, log_path + std::string(".1"));
    write_file(log_path, "");
    const int taken = take_event_port();
    fs::remove(usb_host_document.path);
    write_document("power.json", R"({"power": {"power_source": "Sun\u001b"}})");
    set_age(inputs_document, std::chrono::hours(-1));
    expect_findings([] {}, R"(4 well
inputs.json: empty, written 0 seconds ago; REPAIR
inputs.json: locked for reading by (service\u001btests); UNLOCK
usb-host.json: No such file or directory; SEED
ethernet.json: locked by (service\u001btests); UNLOCK
power.json: power.power_source is "Sun\u001b": Failed to match against any enum values.; REMOVE
/var/log/status_json_service/status_json_service.log: DROPPED
events of (status_json_ser): their netlink port is taken by (service\u001btests); END
)");
    stop();
    EXPECT_EQ(close(taken) | close(writer) | close(reader), 0);
}

TEST_F(Check, TellsWhoRunsWhoMayNotAndWhatStandsInADocumentsPlace)
{
    const pid_t first = service_pid();
    const int taken = take_event_port();
    fs::remove(message_socket_path);
    start([] { prctl(PR_CAPBSET_DROP, CAP_NET_ADMIN); });
    fs::permissions(message_socket_path, fs::perms::none);
    fs::permissions(power_document.path, fs::perms::none);
    fs::resize_file(ethernet_document.path, (16U << 20U) + 1);
    fs::remove(outputs_document.path);
    ASSERT_EQ(mkfifo(outputs_document.path, 0600), 0);
    const Action drop_rights = [] {
        for (const int right : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_SYS_PTRACE}) {
            prctl(PR_CAPBSET_DROP, right);
        }
    };
    expect_findings(drop_rights, R"(6 well
ethernet.json: larger than 16 MiB; LOOK
power.json: Permission denied; LOOK
outputs.json: not a regular file; LOOK
/tmp/json_app.sock: Permission denied; check as a user who may send
status_json_service: runs 2 times; STOP
events of (status_json_ser): their netlink port is taken by a socket; END
events of (status_json_ser): it lacks CAP_NET_ADMIN; no event goes out; start it with that
)");
    close(taken);

    stop();
    fs::remove(outputs_document.path);
    write_document("inputs.json", "7");
    write_document("usb-host.json", R"({"\u001b": 1})");
    write_document("ethernet.json", R"({"ethernet": [7]})");
    const int locked = open(power_document.path, O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(locked, LOCK_EX), 0);
    const Action hide_locks = [] {  // as those of another container are
        unshare(CLONE_NEWNS);
        mount("/dev/null", "/proc/locks", nullptr, MS_BIND, nullptr);
    };
    expect_findings(hide_locks, R"(4 well
inputs.json: is 7: Value type not permitted by 'type' constraint.; REMOVE
usb-host.json: UNKNOWN '\u001b'.; REMOVE
usb-host.json: Missing required property 'usb_c'.; REMOVE
ethernet.json: ethernet[0] is 7: Value type not permitted by 'type' constraint.; REMOVE
ethernet.json: ethernet: Array should contain no fewer than 4 elements.; REMOVE
power.json: locked by another process; by one that can't be seen from here, as in another container
outputs.json: No such file or directory; SEED
/tmp/json_app.sock: Connection refused; AGAIN
)");
    close(locked);
    kill(first, SIGKILL);
    waitpid(first, nullptr, 0);
}

TEST_F(Check, TellsOfFoldersThatAreOfNoUse)
{
    stop();
    const auto of_state = [](const std::string& state) {
        return "0 well\n/var/run/status: " + state +
               "; ROOM\nEACH.json: No such file or directory; make its folder writable, then "
               "SEED\n" +
               log_folder + ": " + state + "; MEND\n";
    };
    // What is mounted on which folders, and what that makes of them.
    const Lines both = {status_directory, log_folder};
    const std::tuple<const char*, const char*, Lines, std::string> rows[] = {
        {"tmpfs", "size=4096", both, of_state("full")},
        {"tmpfs", "nr_inodes=1", both, of_state("full")},
        {"tmpfs", "ro", both, of_state("read-only")},
        {"tmpfs", "", {"/var/run"}, R"(1 well
/var/run/status: No such file or directory; the service makes it when it starts
EACH.json: No such file or directory; SEED
)"},
        {"ramfs", "", {status_directory, "/var/log"}, R"(1 well
EACH.json: No such file or directory; SEED
/var/log/status_json_service: No such file or directory; MEND
)"},
        {"proc", "", {status_directory, "/etc/log4cpp"}, R"(0 well
/var/run/status: not in memory: each change of a document waits for a disk; mount a tmpfs on /run
EACH.json: No such file or directory; SEED
/etc/log4cpp/status_json_service.conf: No such file or directory; INSTALL
)"},
    };
    std::list<Tool> tools;  // side by side, as they wait for documents that may come
    for (const auto& row : rows) {
        tools.emplace_back(Lines{"check"}, "", [&row] {
            const auto& [type, options, folders, found] = row;
            unshare(CLONE_NEWNS);
            for (const std::string& folder : folders) {
                mount("none", folder.c_str(), type, 0, options);
            }
        });
    }
    auto tool = tools.begin();
    for (const auto& row : rows) {
        EXPECT_EQ(findings(*tool++),
                  std::get<std::string>(row) +
                      "/tmp/json_app.sock: Connection refused; start the service\n"
                      "status_json_service: is not running; start it\n");
    }
}

TEST_F(Check, RepairRemovesWhatDoesNotParseBeforeAStart)
{
    const auto repaired = [](const Action& prepare = [] {}) {
        return output_of(Tool({"check", "--repair"}, "", prepare), 0);
    };
    const char* const fixed = outputs_document.path;
    write_document("inputs.json", "");
    EXPECT_EQ(repaired(), "the service is running: nothing is removed\n");
    stop();
    write_document("outputs.json", R"({"outputs": 7)");
    write_document("ethernet.json", R"({"ethernet": 7})");
    write_document("power.json", "{} and more");  // which the service reads
    auto left = texts();
    // A service that /proc hides would have open what it writes.
    const int writer = open(inputs_document.path, O_WRONLY | O_CLOEXEC);
    const int other = open(power_document.path, O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(mount(fixed, fixed, nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(repaired(), R"(kept /var/run/status/inputs.json: being written
can't remove /var/run/status/outputs.json: Device or resource busy
)");
    EXPECT_EQ(umount(fixed) | close(writer) | close(other), 0);
    EXPECT_EQ(texts(), left);
    EXPECT_EQ(repaired(), R"(removed /var/run/status/inputs.json: empty
removed /var/run/status/outputs.json: Line 1, Column 14 Missing ',' or '}' in object declaration
)");
    left.erase("inputs.json");
    left.erase("outputs.json");
    EXPECT_EQ(texts(), left);

    write_document("outputs.json", "");
    if (chown(fixed, 65534, 65534) != 0) {
        GTEST_SKIP() << "there are no other users";
    }
    EXPECT_EQ(repaired([] { prctl(PR_CAPBSET_DROP, CAP_LEASE); }),
              "kept /var/run/status/outputs.json: Permission denied\n");
}

}  // namespace
