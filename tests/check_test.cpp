/// `statusctl check`: what it finds, and what it repairs.
#include <fcntl.h>
#include <linux/capability.h>
#include <linux/netlink.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "store/documents.h"
#include "tests/tool.h"

namespace {

namespace fs = std::filesystem;

class Check : public ServiceTest {
protected:
    /// Runs the tool; its output and its status are then in `output` and `status`.
    void check(
        const std::vector<std::string>& words = {"check"}, const Action& prepare = [] {})
    {
        status = Tool(words, "", prepare).wait();
        output = "\n" + Tool::output();
    }

    /// Expects a line that starts so; gives its end.
    std::string expect_line(const std::string& start) const
    {
        const std::size_t place = output.find("\n" + start);
        EXPECT_NE(place, std::string::npos) << start << "\nin" << output;
        const std::size_t end = std::min(output.size(), place + start.size() + 1);
        return output.substr(end, output.find('\n', end) - end);
    }

    std::string service() const
    {
        return "process " + std::to_string(service_pid()) + " (status_json_ser)";
    }

    std::string output;
    int status = -1;
};

TEST_F(Check, AllIsWellAfterTheStartAndAfterAReport)
{
    send_line("power_status 1");
    settle();
    fs::last_write_time(path_of("inputs.json"),
                        fs::file_time_type::clock::now() - std::chrono::hours(3));
    check();
    EXPECT_EQ(status, 0) << output;
    expect_line("ok       inputs.json: valid, written 3 hours ago");
    const std::string seeded = "as seeded: nothing reported yet";
    expect_line("ok       /var/run/status: in memory");
    EXPECT_NE(expect_line("ok       outputs.json: valid, written ").find(seeded),
              std::string::npos);
    EXPECT_EQ(expect_line("ok       power.json: valid, written ").find(seeded), std::string::npos);
    expect_line("ok       /tmp/json_app.sock: takes messages");
    expect_line("ok       status_json_service: " + service());
    expect_line("ok       events of " + service() + ": their netlink port is free");
}

TEST_F(Check, EachProblemIsALine)
{
    const int locked = open(path_of("ethernet.json").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(locked, LOCK_SH), 0);
    const int taken = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK);
    sockaddr_nl port = {};
    port.nl_family = AF_NETLINK;
    port.nl_pid = static_cast<std::uint32_t>(service_pid());
    ASSERT_EQ(bind(taken, reinterpret_cast<const sockaddr*>(&port), sizeof port), 0);
    fs::remove(path_of("usb-host.json"));
    write_document("inputs.json", "");
    write_document("power.json", R"({"power": {"power_source": "Sun\u001b"}})");
    write_document("outputs.json", R"({"outputs": )");
    check();
    const std::string own = "process " + std::to_string(getpid()) + " (service_tests)";
    EXPECT_EQ(status, 1);
    expect_line("PROBLEM  inputs.json: empty, written ");
    expect_line("PROBLEM  usb-host.json: No such file or directory; ");
    expect_line("PROBLEM  ethernet.json: locked for reading by " + own);
    expect_line(R"(PROBLEM  power.json: power.power_source is "Sun\u001b": )");
    expect_line("PROBLEM  outputs.json: Line 1, Column 13 ");
    expect_line("PROBLEM  events of " + service() + ": their netlink port is taken by " + own);
    close(locked);
    close(taken);

    stop();
    check();
    expect_line("PROBLEM  /tmp/json_app.sock: Connection refused; start the service");
    expect_line("PROBLEM  status_json_service: is not running; ");
}

TEST_F(Check, TellsWhatStandsInADocumentsPlace)
{
    for (const char* name : {"power.json", "outputs.json"}) {
        fs::remove(path_of(name));
    }
    fs::create_symlink("power.json", path_of("power.json"));
    fs::create_directory(path_of("outputs.json"));
    fs::resize_file(path_of("ethernet.json"), (16U << 20U) + 1);
    write_document("inputs.json", R"({"inputs": [7]})");
    write_document("usb-host.json", R"({"usb_c": {}})");
    check();
    expect_line("PROBLEM  power.json: Too many levels of symbolic links; look at what ");
    expect_line("PROBLEM  outputs.json: not a regular file; look at what ");
    expect_line("PROBLEM  ethernet.json: larger than 16 MiB; look at what ");
    expect_line("PROBLEM  inputs.json: inputs[0] is 7: ");
    expect_line("PROBLEM  usb-host.json: usb_c: ");
    fs::remove(path_of("outputs.json"));
    write_document("outputs.json", R"({"outputs": []})");
    write_document("inputs.json", "7");
    write_document("usb-host.json", "{}");
    check();
    expect_line("PROBLEM  inputs.json: is 7: ");
    expect_line("PROBLEM  outputs.json: outputs: ");
    expect_line("PROBLEM  usb-host.json: Missing ");
}

TEST_F(Check, TellsWhoHoldsLocksAndThatServicesAreTwo)
{
    const int writer = open(path_of("ethernet.json").c_str(), O_RDONLY | O_CLOEXEC);
    const int reader = open(path_of("inputs.json").c_str(), O_RDWR | O_CLOEXEC);
    struct flock other_kind = {F_WRLCK, SEEK_SET, 0, 0, 0};
    ASSERT_EQ(flock(writer, LOCK_EX) | flock(reader, LOCK_SH), 0);
    ASSERT_EQ(fcntl(reader, F_SETLK, &other_kind), 0);
    send_line("uac_control 0 1 1");
    wait_until("the rewrite", [] { return fs::file_size(inputs_document.path) == 0; });
    const pid_t first = service_pid();
    start();
    check();
    const std::string own = "process " + std::to_string(getpid()) + " (service_tests)";
    expect_line("PROBLEM  ethernet.json: locked by " + own);
    expect_line("PROBLEM  inputs.json: locked for reading by " + own);
    EXPECT_EQ(output.find("json: locked by process " + std::to_string(first)), std::string::npos)
        << "it only waits";
    expect_line("PROBLEM  status_json_service: runs 2 times; ");
    close(writer);
    close(reader);
    kill(first, SIGKILL);
    waitpid(first, nullptr, 0);
}

TEST_F(Check, TellsWhichRightsAreMissing)
{
    const Action drop_rights = [] {
        for (const int right : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_SYS_PTRACE}) {
            prctl(PR_CAPBSET_DROP, right);
        }
    };
    const int taken = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK);
    const sockaddr_nl port = {AF_NETLINK, 0, static_cast<unsigned>(service_pid()), 0};
    ASSERT_EQ(bind(taken, reinterpret_cast<const sockaddr*>(&port), sizeof port), 0);
    fs::permissions(message_socket_path, fs::perms::none);
    fs::permissions(path_of("power.json"), fs::perms::none);
    check({"check"}, drop_rights);
    expect_line("PROBLEM  /tmp/json_app.sock: Permission denied; check as a user who may send");
    expect_line("PROBLEM  power.json: Permission denied; look at what ");
    expect_line("PROBLEM  events of " + service() + ": their netlink port is taken by a socket; ");
    close(taken);

    stop();
    launch([] { prctl(PR_CAPBSET_DROP, CAP_NET_ADMIN); });
    wait_until("the finding", [this] {
        check();
        return output.find("PROBLEM  events of " + service() + ": it lacks CAP_NET_ADMIN; ") !=
               std::string::npos;
    });
}

TEST_F(Check, TellsWhereTheDocumentsStand)
{
    stop();
    const std::pair<const char*, const char*> rows[] = {
        {"ramfs", "ok       /var/run/status: in memory"},
        {"proc", "PROBLEM  /var/run/status: not in memory: each change "}};
    for (const auto& [type, line] : rows) {
        ASSERT_EQ(mount("none", status_directory, type, 0, nullptr), 0) << type;
        check();
        expect_line(line);
        EXPECT_EQ(umount(status_directory), 0);
    }
    fs::remove_all(status_directory);
    check();
    expect_line("PROBLEM  /var/run/status: No such file or directory; the service makes it ");
}

TEST_F(Check, RepairRemovesWhatDoesNotParseBeforeAStart)
{
    write_document("inputs.json", "");
    check({"check", "--repair"});
    EXPECT_TRUE(fs::exists(path_of("inputs.json"))) << "removed while the service runs";
    stop();
    write_document("outputs.json", R"({"outputs": )");
    write_document("ethernet.json", R"({"ethernet": 7})");
    write_document("power.json", "{} and more");  // which the service reads
    check({"check", "--repair"});
    EXPECT_EQ(status, 0);
    expect_line(
        "removed /var/run/status/inputs.json: empty\nremoved /var/run/status/outputs.json: ");
    EXPECT_FALSE(fs::exists(path_of("inputs.json")));
    EXPECT_FALSE(fs::exists(path_of("outputs.json")));
    EXPECT_EQ(text_of("ethernet.json"), R"({"ethernet": 7})");
    EXPECT_TRUE(fs::exists(path_of("power.json")));
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
    const int writer = open(path_of("inputs.json").c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    check({"check", "--repair"}, hide_proc);
    EXPECT_EQ(output, "\nkept /var/run/status/inputs.json: being written\n");
    EXPECT_TRUE(fs::exists(path_of("inputs.json")));
    close(writer);
    check({"check", "--repair"}, hide_proc);
    EXPECT_EQ(output, "\nremoved /var/run/status/inputs.json: empty\n");
}

TEST_F(Check, RepairTellsWhatItCanNotRemove)
{
    stop();
    const std::string fixed = path_of("inputs.json");
    write_document("inputs.json", "");
    write_document("outputs.json", "");
    if (chown(path_of("outputs.json").c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "there are no other users";
    }
    ASSERT_EQ(mount(fixed.c_str(), fixed.c_str(), nullptr, MS_BIND, nullptr), 0);
    check({"check", "--repair"}, [] { prctl(PR_CAPBSET_DROP, CAP_LEASE); });
    EXPECT_EQ(output, "\ncan't remove " + fixed + ": Device or resource busy\nkept " +
                          path_of("outputs.json") + ": Permission denied\n");
    EXPECT_EQ(umount(fixed.c_str()), 0);
}

}  // namespace
