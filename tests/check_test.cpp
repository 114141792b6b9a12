/// `statusctl check`: what it finds, and what it repairs.
#include <fcntl.h>
#include <linux/netlink.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

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
    check();
    EXPECT_EQ(status, 0) << output;
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

TEST_F(Check, RepairRemovesWhatDoesNotParseBeforeAStart)
{
    write_document("inputs.json", "");
    check({"check", "--repair"});
    EXPECT_TRUE(fs::exists(path_of("inputs.json"))) << "removed while the service runs";
    stop();
    write_document("outputs.json", R"({"outputs": )");
    write_document("ethernet.json", R"({"ethernet": 7})");
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

}  // namespace
