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

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "store/documents.h"
#include "tests/tool.h"

namespace {

namespace fs = std::filesystem;

const std::string drop = "Message queue overflow, dropped=";

class Check : public ServiceTest {
protected:
    /// Runs the tool; its output and its status are then in `output` and `status`.
    void check(
        const std::vector<std::string>& words = {"check"}, const Action& prepare = [] {})
    {
        const Tool tool(words, "", prepare);
        status = tool.wait();
        output = tool.output();
        EXPECT_EQ(tool.complaint(), "");
        EXPECT_EQ(output.find('\x1B'), std::string::npos) << "text of others is escaped";
    }

    /// Expects this among the lines of the output.
    void expect_line(const std::string& line) const
    {
        EXPECT_NE(("\n" + output).find("\n" + line + "\n"), std::string::npos) << line << "\nin\n"
                                                                               << output;
    }

    static std::string process(pid_t pid, const char* name = "status_json_ser")
    {
        return "process " + std::to_string(pid) + " (" + name + ")";
    }
    static std::string self() { return process(getpid(), "service\\u001btests"); }

    static void set_age(const StatusDocument& document, std::chrono::seconds age)
    {
        fs::last_write_time(document.path, fs::file_time_type::clock::now() - age);
    }

    /// Takes the netlink port of the service's events; gives the socket.
    int take_event_port() const
    {
        const int taken = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK);
        const sockaddr_nl port = {AF_NETLINK, 0, static_cast<unsigned>(service_pid()), 0};
        EXPECT_EQ(bind(taken, reinterpret_cast<const sockaddr*>(&port), sizeof port), 0);
        return taken;
    }

    std::string output;
    int status = -1;
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
    const std::string log = "/var/log/status_json_service/status_json_service.log";
    write_file(log,
               "2026-01-01 00:00:00.000 INFO CATEGORY: " + drop + "1, of an earlier service\n");
    check();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(output, R"(ok       /var/run/status: in memory
ok       inputs.json: valid, written 2 days ago, as seeded: nothing reported yet
ok       usb-host.json: valid, written 47 hours ago, as seeded: nothing reported yet
ok       ethernet.json: valid, written 2 hours ago, as seeded: nothing reported yet
ok       power.json: valid, written 119 minutes ago
ok       outputs.json: valid, written 0 seconds ago, as seeded: nothing reported yet
ok       /var/log/status_json_service/status_json_service.log: tells of no dropped message
ok       /tmp/json_app.sock: takes messages
ok       status_json_service: )" +
                          process(service_pid()) + "\nok       events of " +
                          process(service_pid()) + ": their netlink port is free\n");
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
    const pid_t first = service_pid();
    const int taken = take_event_port();
    fs::remove(message_socket_path);
    start();
    settle();
    fs::remove(usb_host_document.path);
    write_document("power.json", R"({"power": {"power_source": "Sun\u001b"}})");
    set_age(inputs_document, std::chrono::hours(-1));
    set_age(outputs_document, std::chrono::hours(-1));
    const std::string unlock = "; the service waits until that process unlocks it or ends\n";
    const std::string expected =
        "ok       /var/run/status: in memory\n"
        "PROBLEM  inputs.json: empty, written 0 seconds ago; stop the service, statusctl "
        "check --repair, start it again, and have all reported anew\n"
        "PROBLEM  inputs.json: locked for reading by " +
        self() + unlock +
        "PROBLEM  usb-host.json: No such file or directory; start the service again, which "
        "seeds it, and have all reported anew\n"
        "PROBLEM  ethernet.json: locked by " +
        self() + unlock +
        "PROBLEM  power.json: power.power_source is \"Sun\\u001b\": Failed to match "
        "against any enum values.; something else than the service has written it; remove "
        "it and start the service again\n"
        "ok       outputs.json: valid, written 0 seconds ago, as seeded: nothing reported yet\n"
        "ok       /var/log/status_json_service/status_json_service.log: tells of no dropped "
        "message\n"
        "ok       /tmp/json_app.sock: takes messages\n"
        "PROBLEM  status_json_service: runs 2 times; stop all and start one: only the last "
        "has the socket, all write documents\n"
        "ok       status_json_service: " +
        process(first) + "\nPROBLEM  events of " + process(first) +
        ": their netlink port is taken by " + self() +
        "; no event goes out; end that process, or start the service again\n"
        "ok       status_json_service: " +
        process(service_pid()) + "\nok       events of " + process(service_pid()) +
        ": their netlink port is free\n";
    // On a loaded machine, what passes may take longer than the tool expects.
    for (int tries = 0; tries < 3 && output != expected; ++tries) {
        check();
    }
    EXPECT_EQ(status, 1);
    EXPECT_EQ(output, expected);
    close(taken);
    close(writer);
    close(reader);
    kill(first, SIGKILL);
    waitpid(first, nullptr, 0);
}

TEST_F(Check, TellsWhatStandsInADocumentsPlace)
{
    stop();
    const std::string look = "; look at what stands there and at its rights";
    const std::string written =
        "; something else than the service has written it; remove it and "
        "start the service again";
    fs::remove(power_document.path);
    fs::remove(outputs_document.path);
    fs::create_symlink("power.json", power_document.path);
    ASSERT_EQ(mkfifo(outputs_document.path, 0600), 0);
    fs::resize_file(ethernet_document.path, (16U << 20U) + 1);
    write_document("inputs.json", R"({"inputs": [7]})");
    write_document("usb-host.json", R"({"usb_c": {}})");
    check();
    expect_line("PROBLEM  power.json: Too many levels of symbolic links" + look);
    expect_line("PROBLEM  outputs.json: not a regular file" + look);
    expect_line("PROBLEM  ethernet.json: larger than 16 MiB" + look);
    expect_line(
        "PROBLEM  inputs.json: inputs[0] is 7: Value type not permitted by 'type' "
        "constraint." +
        written);
    expect_line("PROBLEM  usb-host.json: usb_c: Value type not permitted by 'type' constraint." +
                written);
    expect_line("PROBLEM  /tmp/json_app.sock: Connection refused; start the service");
    expect_line("PROBLEM  status_json_service: is not running; start it");
    fs::remove(outputs_document.path);
    write_document("outputs.json", R"({"outputs": []})");
    write_document("inputs.json", "7");
    write_document("usb-host.json", R"({"\u001b": 1})");
    check();
    expect_line("PROBLEM  inputs.json: is 7: Value type not permitted by 'type' constraint." +
                written);
    expect_line("PROBLEM  outputs.json: outputs: Array should contain no fewer than 1 elements." +
                written);
    expect_line("PROBLEM  usb-host.json: Missing required property 'usb_c'." + written);

    const std::pair<const char*, const char*> rows[] = {
        {"ramfs", "ok       /var/run/status: in memory"},
        {"proc",
         "PROBLEM  /var/run/status: not in memory: each change of a document waits for a "
         "disk; mount a tmpfs on /run"}};
    for (const auto& [type, line] : rows) {
        ASSERT_EQ(mount("none", status_directory, type, 0, nullptr), 0) << type;
        check();
        expect_line(line);
        EXPECT_EQ(umount(status_directory), 0);
    }
    fs::remove_all(status_directory);
    check();
    expect_line(
        "PROBLEM  /var/run/status: No such file or directory; the service makes it when it "
        "starts");
}

TEST_F(Check, TellsWhatARestartAloneCanNotMend)
{
    const std::string log_folder = "/var/log/status_json_service";
    const int writer = open(power_document.path, O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(writer, LOCK_EX), 0);
    for (int i = 0; i < 130; ++i) {  // one is worked on, and 128 wait
        send_line("power_status 1");
    }
    wait_logged(drop + "1, queue_size=128");
    fs::rename(log_folder + "/status_json_service.log", log_folder + "/status_json_service.log.1");
    write_file(log_folder + "/status_json_service.log", "");
    check();
    EXPECT_NE(output.find(drop + "1, queue_size=128; have all reported anew, and let senders pace"),
              std::string::npos)
        << output;
    close(writer);

    const pid_t first = service_pid();
    fs::remove(message_socket_path);
    start();
    stop();
    check();
    expect_line(
        "PROBLEM  /tmp/json_app.sock: Connection refused; start the service again: a second one "
        "has taken its socket and ended");
    kill(first, SIGKILL);
    waitpid(first, nullptr, 0);

    const std::string nothing = "; nothing is logged; mend that and start the service again";
    const std::string no_room =
        "; the service can't write documents: make room, or mount it to be written";
    const std::string first_room =
        "No such file or directory; make its folder writable, then start the service";
    const std::pair<const char*, std::string> rows[] = {
        {"size=4096", "full"}, {"nr_inodes=1", "full"}, {"ro", "read-only"}};
    for (const auto& [options, state] : rows) {
        const unsigned long flags = options == std::string("ro") ? MS_RDONLY : 0;
        const char* const size = flags == 0 ? options : "";
        ASSERT_EQ(mount("none", log_folder.c_str(), "tmpfs", flags, size), 0);
        ASSERT_EQ(mount("none", status_directory, "tmpfs", flags, size), 0);
        check();
        expect_line("PROBLEM  " + log_folder + (": " + (state + nothing)));
        expect_line(std::string("PROBLEM  ") + status_directory + (": " + (state + no_room)));
        EXPECT_NE(output.find("PROBLEM  power.json: " + first_room), std::string::npos) << output;
        ASSERT_EQ(umount(log_folder.c_str()) | umount(status_directory), 0);
    }
    fs::rename(log_folder, log_folder + "2");
    check();
    expect_line("PROBLEM  " + log_folder + ": No such file or directory" + nothing);
    fs::rename(log_folder + "2", log_folder);
    const std::string configuration = read_file(log_configuration_path);
    write_file(log_configuration_path,
               configuration + "#log4cpp.appender.file.fileName=/none/log\n");
    check();
    EXPECT_EQ(output.find("/none"), std::string::npos);
    fs::remove(log_configuration_path);
    check();
    expect_line(std::string("PROBLEM  ") + log_configuration_path +
                ": No such file or directory; the log goes to standard error; install it and start "
                "the service again");
    write_file(log_configuration_path, configuration);
}

TEST_F(Check, TellsWhichRightsAreMissing)
{
    const Action drop_rights = [] {
        for (const int right : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_SYS_PTRACE}) {
            prctl(PR_CAPBSET_DROP, right);
        }
    };
    const int taken = take_event_port();
    fs::permissions(message_socket_path, fs::perms::none);
    fs::permissions(power_document.path, fs::perms::none);
    check({"check"}, drop_rights);
    expect_line("PROBLEM  /tmp/json_app.sock: Permission denied; check as a user who may send");
    expect_line(
        "PROBLEM  power.json: Permission denied; look at what stands there and at its "
        "rights");
    expect_line("PROBLEM  events of " + process(service_pid()) +
                ": their netlink port is taken by a socket; no event goes out; end that process, "
                "or start the service again");
    close(taken);

    stop();
    launch([] { prctl(PR_CAPBSET_DROP, CAP_NET_ADMIN); });
    wait_until("the finding", [this] {
        check();
        return output.find("PROBLEM  events of " + process(service_pid()) +
                           ": it lacks CAP_NET_ADMIN; no event goes out; start it with that\n") !=
               std::string::npos;
    });
}

TEST_F(Check, RepairRemovesWhatDoesNotParseBeforeAStart)
{
    write_document("inputs.json", "");
    check({"check", "--repair"});
    EXPECT_EQ(output, "the service is running: nothing is removed\n");
    EXPECT_TRUE(fs::exists(inputs_document.path));
    stop();
    write_document("outputs.json", R"({"outputs": )");
    write_document("ethernet.json", R"({"ethernet": 7})");
    write_document("power.json", "{} and more");  // which the service reads
    check({"check", "--repair"});
    EXPECT_EQ(status, 0);
    EXPECT_EQ(output,
              "removed /var/run/status/inputs.json: empty\nremoved "
              "/var/run/status/outputs.json: Line 1, Column 13 Syntax error: value, object "
              "or array expected.\n");
    EXPECT_TRUE(fs::exists(usb_host_document.path));
    EXPECT_EQ(text_of("ethernet.json"), R"({"ethernet": 7})");
    EXPECT_EQ(text_of("power.json"), "{} and more");
}

TEST_F(Check, RepairSparesWhatAServiceWritesThatItDoesNotSee)
{
#ifdef SANITIZED
    GTEST_SKIP() << "the sanitizers' runtimes need /proc";
#endif
    const Action hide_proc = [] {
        unshare(CLONE_NEWNS);
        mount("none", "/proc", "tmpfs", 0, nullptr);
    };
    const int writer = open(inputs_document.path, O_WRONLY | O_TRUNC | O_CLOEXEC);
    const int other = open(power_document.path, O_WRONLY | O_CLOEXEC);  // which stays good
    check({"check", "--repair"}, hide_proc);
    EXPECT_EQ(output, "kept /var/run/status/inputs.json: being written\n");
    EXPECT_TRUE(fs::exists(inputs_document.path));
    close(writer);
    close(other);
    check({"check", "--repair"}, hide_proc);
    EXPECT_EQ(output, "removed /var/run/status/inputs.json: empty\n");
}

TEST_F(Check, RepairTellsWhatItCanNotRemove)
{
    stop();
    const std::string fixed = inputs_document.path;
    write_document("inputs.json", "");
    write_document("outputs.json", "");
    if (chown(outputs_document.path, 65534, 65534) != 0) {
        GTEST_SKIP() << "there are no other users";
    }
    ASSERT_EQ(mount(fixed.c_str(), fixed.c_str(), nullptr, MS_BIND, nullptr), 0);
    check({"check", "--repair"}, [] { prctl(PR_CAPBSET_DROP, CAP_LEASE); });
    EXPECT_EQ(output, "can't remove " + fixed + ": Device or resource busy\nkept " +
                          outputs_document.path + ": Permission denied\n");
    EXPECT_EQ(umount(fixed.c_str()), 0);
}

}  // namespace
