/// The client library, called as the programs call it that report and read.
#include <fcntl.h>
#include <linux/capability.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>
#include <thread>

#include "client/client.h"
#include "store/documents.h"
#include "tests/service.h"

namespace {

namespace fs = std::filesystem;

constexpr int at_once_ms = 0;
constexpr int minute_ms = 60000;

constexpr unsigned bit(status_json_document document)
{
    return 1U << document;
}
constexpr unsigned all_documents = (1U << std::size(status_documents)) - 1;

/// What a failed call says; "" where it succeeded.
std::string complaint(bool succeeded)
{
    return succeeded ? "" : strerrorname_np(errno);
}

/// What a read gives: its text, or why there is none.
std::string outcome_of_read(status_json_document document, int patience_ms = at_once_ms)
{
    std::size_t length = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        status_json_read(document, patience_ms, &length), std::free);
    return text == nullptr ? complaint(false) : std::string(text.get(), length + 1);
}

/// With the zero byte behind it.
std::string with_zero(const std::string& text)
{
    return {text.c_str(), text.size() + 1};
}

/// What a document holds that isn't read as a whole one, and what it lacks.
std::pair<std::string, status_json_state> examined(status_json_document document)
{
    status_json_state state = STATUS_JSON_WHOLE;
    std::size_t length = 0;
    char* const text = status_json_examine(document, at_once_ms, &length, &state);
    EXPECT_NE(text, nullptr);
    std::string copy(text, length);
    std::free(text);
    return {copy, state};
}

/// Runs in a thread that has no capability.
void without_capabilities(const std::function<void()>& work)
{
    std::thread([&work] {
        __user_cap_header_struct version = {_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct none[2] = {};
        ASSERT_EQ(syscall(SYS_capset, &version, none), 0);
        work();
    }).join();
}

/// Sends events as any process of that user can. In a process of its own, which may go back to
/// a user that can't be had: that is as good as one who isn't believed.
void send_event(const std::string& name, uid_t user = 0, int times = 1)
{
    const pid_t child = fork();
    if (child == 0) {
        std::string message(NLMSG_HDRLEN + 1024, '\0');
        const nlmsghdr header = {static_cast<std::uint32_t>(message.size()), 0, 0, 0, 0};
        std::memcpy(message.data(), &header, sizeof header);
        message.replace(NLMSG_HDRLEN, name.size(), name);
        sockaddr_nl group = {AF_NETLINK, 0, 0, 1};
        const int descriptor = socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK);
        for (int i = 0; (user == 0 || setuid(user) == 0) && i < times; ++i) {
            sendto(descriptor, message.data(), message.size(), 0,
                   reinterpret_cast<sockaddr*>(&group), sizeof group);
        }
        _exit(0);
    }
    waitpid(child, nullptr, 0);
}

struct Watch {
    Watch() : watch(status_json_watch_open()) { EXPECT_NE(watch, nullptr) << complaint(false); }
    ~Watch() { status_json_watch_close(watch); }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    bool is_readable() const
    {
        pollfd readable = {status_json_watch_fd(watch), POLLIN, 0};
        return poll(&readable, 1, 0) == 1;
    }
    /// What all looks give until there is nothing left.
    unsigned take() const
    {
        unsigned documents = 0;
        while (is_readable()) {
            documents |= status_json_watch_take(watch);
        }
        return documents;
    }

    status_json_watch* watch;
};

class Client : public ServiceTest {
protected:
    unsigned taken_after(const Watch& watch, const std::string& line) const
    {
        send_line(line);
        settle();
        return watch.take();
    }
};

TEST_F(Client, ReportsComeAsTheyAreOrFailAtOnce)
{
    for (std::size_t i = 0; i < std::size(status_documents); ++i) {
        EXPECT_STREQ(status_json_path(static_cast<status_json_document>(i)),
                     status_documents[i].path);
    }
    EXPECT_EQ(status_json_path(static_cast<status_json_document>(5)), nullptr);
    EXPECT_EQ(outcome_of_read(static_cast<status_json_document>(5)), "EINVAL");

    CmdDataLinkStatus link = {};
    link.port = link.isConnect = 1;
    const std::string longest(1015, '7');
    const std::uint32_t bytes[] = {1234567, 4, 0};
    const Lines logged = logged_by([&] {
        EXPECT_EQ(status_json_send(MSG_TYPE_LINK_STATUS, &link, sizeof link, at_once_ms), 0);
        EXPECT_EQ(status_json_send_text(MSG_TYPE_POWER_V_VALUE, "510", at_once_ms), 0);
        EXPECT_EQ(status_json_send_text(7654321, longest.c_str(), minute_ms), 0);
        EXPECT_EQ(status_json_send(7654322, nullptr, 0, at_once_ms), 0);
        EXPECT_EQ(status_json_send_datagram(bytes, sizeof bytes, at_once_ms), 0);
        EXPECT_EQ(status_json_send_text(7654321, (longest + "7").c_str(), at_once_ms), -1);
        EXPECT_EQ(complaint(false), "EMSGSIZE");
    });
    EXPECT_EQ(logged.size(), 5U) << ::testing::PrintToString(logged);
    EXPECT_EQ(value_of("inputs.json", ".inputs[1].video.connected"), true);
    EXPECT_EQ(value_of("power.json", ".power.measured_power_current_a"), 510);
    for (const char* part :
         {"type 7654321 or length 1015", "type 7654322 or length 0", "type 1234567 or length 4"}) {
        EXPECT_NE(::testing::PrintToString(logged).find(part), std::string::npos) << part;
    }

    // A service that doesn't run takes some messages still, until its queue is full.
    kill(service_pid(), SIGSTOP);
    waitpid(service_pid(), nullptr, WUNTRACED);
    while (status_json_send(7654322, nullptr, 0, at_once_ms) == 0) {
    }
    EXPECT_EQ(complaint(false), "EAGAIN");
    EXPECT_EQ(complaint(status_json_send(7654322, nullptr, 0, 1) == 0), "EAGAIN");
    std::atomic<bool> sends = false;
    std::thread patient([&sends] {
        sends = true;
        EXPECT_EQ(status_json_send_text(MSG_TYPE_POWER_V_VALUE, "511", minute_ms), 0);
    });
    wait_until("the patient sender", [&sends] { return sends.load(); });
    kill(service_pid(), SIGCONT);
    patient.join();
    settle();
    EXPECT_EQ(value_of("power.json", ".power.measured_power_current_a"), 511);

    ASSERT_EQ(chmod(message_socket_path, 0), 0);
    without_capabilities(
        [] { EXPECT_EQ(complaint(status_json_send(1, nullptr, 0, minute_ms) == 0), "EACCES"); });
    stop();
    EXPECT_EQ(complaint(status_json_send(1, nullptr, 0, minute_ms) == 0), "ECONNREFUSED");
    fs::remove(message_socket_path);
    EXPECT_EQ(complaint(status_json_send(1, nullptr, 0, minute_ms) == 0), "ENOENT");
    start();
}

TEST_F(Client, ReadsGiveAWholeDocumentOrSayWhy)
{
    const std::string whole = text_of("power.json");
    EXPECT_EQ(outcome_of_read(STATUS_JSON_POWER), with_zero(whole));
    for (const char* text : {R"({"a":"}\"}"})", "[{}, [] ]\n \t\r\n"}) {
        write_document("outputs.json", text);
        EXPECT_EQ(outcome_of_read(STATUS_JSON_OUTPUTS), with_zero(text));
    }
    for (const std::string& text :
         Lines{"", " ", "{\"a\":{}", "{\"}", "{\"\\", "1", "{}}", "x{}"}) {
        write_document("outputs.json", text);
        EXPECT_EQ(outcome_of_read(STATUS_JSON_OUTPUTS), "EAGAIN") << text;
        EXPECT_EQ(examined(STATUS_JSON_OUTPUTS),
                  std::pair(text, text.empty() ? STATUS_JSON_EMPTY : STATUS_JSON_PARTIAL));
    }
    write_document("outputs.json", std::string("{}\0{}", 5));
    EXPECT_EQ(outcome_of_read(STATUS_JSON_OUTPUTS), "EAGAIN");

    // What is empty, and locked then, becomes whole while a reader waits.
    const std::string path = path_of("outputs.json");
    write_document("outputs.json", "");
    std::atomic<bool> reads = false;
    std::thread reader([&reads] {
        reads = true;
        EXPECT_EQ(outcome_of_read(STATUS_JSON_OUTPUTS, minute_ms), with_zero("{}"));
    });
    wait_until("the reader", [&reads] { return reads.load(); });
    const int other = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    EXPECT_EQ(write(other, "{}", 2), 2);
    EXPECT_EQ(outcome_of_read(STATUS_JSON_OUTPUTS), "EAGAIN");
    EXPECT_EQ(examined(STATUS_JSON_OUTPUTS), std::pair(std::string(), STATUS_JSON_LOCKED));
    EXPECT_EQ(flock(other, LOCK_UN), 0);
    reader.join();
    EXPECT_EQ(outcome_of_read(STATUS_JSON_OUTPUTS), with_zero("{}"));
    EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0) << "a read keeps its lock";
    close(other);

    ASSERT_EQ(truncate(path.c_str(), (16 << 20) + 1), 0);
    EXPECT_EQ(outcome_of_read(STATUS_JSON_OUTPUTS), "EFBIG");
    ASSERT_EQ(truncate(path.c_str(), 16 << 20), 0);
    EXPECT_EQ(outcome_of_read(STATUS_JSON_OUTPUTS), "EAGAIN");
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    without_capabilities([] { EXPECT_EQ(outcome_of_read(STATUS_JSON_OUTPUTS), "EACCES"); });
    fs::remove(path);
    EXPECT_EQ(outcome_of_read(STATUS_JSON_OUTPUTS, minute_ms), "ENOENT");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(outcome_of_read(STATUS_JSON_OUTPUTS, minute_ms), "EINVAL");
    fs::remove(path);
}

TEST_F(Client, ReadersNeverSeeARewrite)
{
    std::string states[2];
    for (const int state : {0, 1, 0}) {
        send_line("power_status " + std::to_string(state));
        settle();
        states[state] = with_zero(text_of("power.json"));
    }
    std::atomic<bool> is_over = false;
    std::thread sender([&] {
        for (int i = 0; !is_over; ++i) {
            send_line("power_status " + std::to_string(i % 2));
            if (i % 100 == 99) {
                settle();  // as many as the service takes at once
            }
        }
    });
    int met[2] = {0, 0};
    for (int i = 0; i < 1000 || (std::min(met[0], met[1]) == 0 && i < 1000000); ++i) {
        const std::string text = outcome_of_read(STATUS_JSON_POWER, minute_ms);
        EXPECT_TRUE(text == states[0] || text == states[1]) << text;
        ++met[text == states[1] ? 1 : 0];
    }
    is_over = true;
    sender.join();
    EXPECT_GT(met[0], 0);
    EXPECT_GT(met[1], 0);
    settle();
}

TEST_F(Client, AWatchNamesWhatHasChanged)
{
    const auto follow = [this] {
        const Watch watch;
        EXPECT_EQ(watch.take(), 0U);
        EXPECT_EQ(taken_after(watch, "power_status 1"), bit(STATUS_JSON_POWER));
        EXPECT_EQ(taken_after(watch, "usb_host_in1 1"), bit(STATUS_JSON_USB_HOST));
        EXPECT_EQ(taken_after(watch, "ethernet_control 1 off"), bit(STATUS_JSON_ETHERNET));
        fs::rename(path_of("outputs.json"), path_of("kept"));
        EXPECT_EQ(watch.take(), bit(STATUS_JSON_OUTPUTS));
        fs::rename(path_of("kept"), path_of("outputs.json"));
        EXPECT_EQ(watch.take(), bit(STATUS_JSON_OUTPUTS));
        fs::remove(path_of("outputs.json"));
        EXPECT_EQ(watch.take(), bit(STATUS_JSON_OUTPUTS));
        // Its event, three seconds later, says it once more.
        EXPECT_EQ(taken_after(watch, "link_status port=HDMI isConnect=1"), bit(STATUS_JSON_INPUTS));
        EXPECT_EQ(taken_after(watch, "uac_control 0 1 0"),
                  bit(STATUS_JSON_INPUTS) | bit(STATUS_JSON_OUTPUTS));
        // A service that starts anew takes back what it does not keep, and sends no event.
        stop();
        start();
        const unsigned made_anew = watch.take();
        EXPECT_NE(made_anew & bit(STATUS_JSON_POWER), 0U);
        EXPECT_NE(made_anew & bit(STATUS_JSON_USB_HOST), 0U);

        // Slept through: what is lost is all of it.
        for (int i = 0; i < 1000; ++i) {
            send_line("power_status " + std::to_string(i % 2));
            if (i % 100 == 99) {
                settle();
            }
        }
        EXPECT_NE(watch.take() & bit(STATUS_JSON_POWER), 0U);
        EXPECT_NE(outcome_of_read(STATUS_JSON_POWER).find("Adapter"), std::string::npos);
        for (int i = 0; i < 20000; ++i) {
            write_file(path_of("other" + std::to_string(i % 2)), "");
        }
        EXPECT_EQ(watch.take(), all_documents);

        // The folder goes with a service under systemd, and comes again with it.
        const fs::path aside = std::string(run_directory) + "/aside";
        fs::rename(status_directory, aside);
        EXPECT_EQ(watch.take(), all_documents);
        write_file(aside / "power.json", "{}");
        EXPECT_FALSE(watch.is_readable());
        write_file(aside.parent_path() / "power.json", "{}");
        EXPECT_EQ(watch.take(), 0U);
        fs::rename(aside, status_directory);
        EXPECT_EQ(watch.take(), all_documents);
        fs::remove_all(status_directory);
        EXPECT_EQ(watch.take(), all_documents);
        const Watch early;
        fs::create_directory(status_directory);
        for (const Watch* each : {&watch, &early}) {
            EXPECT_EQ(each->take(), all_documents);
        }
        EXPECT_EQ(taken_after(early, "power_status 1"), bit(STATUS_JSON_POWER));
        EXPECT_EQ(watch.take(), bit(STATUS_JSON_POWER));
    };
    follow();
    stop();
    fs::remove_all(status_directory);
    start();
    without_capabilities(follow);
}

TEST_F(Client, AForgedEventCountsForNothing)
{
    const Watch watch;
    for (const StatusDocument& document : status_documents) {
        if (document.event != nullptr) {
            send_event(document.event);
            EXPECT_EQ(watch.take(), 1U << (&document - status_documents)) << document.event;
            send_event(document.event, 65534);
            EXPECT_EQ(watch.take(), 0U) << document.event;
        }
    }
    for (const std::string& foreign :
         Lines{"", "e_outputs_json_update", "e_power_json_update2", std::string(1024, 'e')}) {
        send_event(foreign);
        EXPECT_EQ(watch.take(), 0U) << foreign;
    }
    send_event("e_other_json_update", 0, 5000);  // more than the socket holds
    EXPECT_EQ(watch.take(), all_documents);
    // The service's own user is believed as well, where there is another than root.
    const uid_t own_user = chown(status_directory, 65534, 65534) == 0 ? 65534 : 0;
    send_event("e_power_json_update", own_user);
    EXPECT_EQ(watch.take(), bit(STATUS_JSON_POWER));
    without_capabilities([] {
        const Watch deaf;
        send_event("e_power_json_update");
        EXPECT_EQ(deaf.take(), 0U);
    });

    // What belongs to the watch stays with it.
    send_event("e_power_json_update");
    const pid_t child = fork();
    if (child == 0) {
        _exit(status_json_watch_take(watch.watch) == 0 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(watch.take(), bit(STATUS_JSON_POWER));
}

std::set<int> open_descriptors()
{
    std::set<int> found;
    for (int descriptor = 0; descriptor < 100; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) != -1) {
            found.insert(descriptor);
        }
    }
    return found;
}

TEST_F(Client, NothingIsLeftOpenAndNothingIsInherited)
{
    const std::set<int> before = open_descriptors();
    {
        const Watch watch;
        for (const int descriptor : open_descriptors()) {
            EXPECT_TRUE(before.count(descriptor) == 1 ||
                        (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0);
        }
        EXPECT_EQ(open_descriptors().size(), before.size() + 3);
    }
    // Each call does what it can with the descriptors that are left to it.
    const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(next);
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const auto with_descriptors = [&](unsigned count, const std::function<bool()>& call) {
        const rlimit little = {static_cast<rlim_t>(next) + count, limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &little);
        std::string result = complaint(call());
        setrlimit(RLIMIT_NOFILE, &limit);
        return result;
    };
    const auto watches = [] {
        status_json_watch* const watch = status_json_watch_open();
        const int error = errno;
        status_json_watch_close(watch);
        errno = error;
        return watch != nullptr;
    };
    const auto sends = [] { return status_json_send(1, nullptr, 0, at_once_ms) == 0; };
    const auto reads = [] { return outcome_of_read(STATUS_JSON_POWER).front() == '{'; };
    EXPECT_EQ(with_descriptors(0, sends), "EMFILE");
    EXPECT_EQ(with_descriptors(1, sends), "");
    EXPECT_EQ(with_descriptors(0, reads), "EMFILE");
    EXPECT_EQ(with_descriptors(1, reads), "");
    EXPECT_EQ(with_descriptors(0, watches), "EMFILE");
    EXPECT_EQ(with_descriptors(1, watches), "EMFILE");
    without_capabilities([&] {
        EXPECT_EQ(with_descriptors(1, watches), "EMFILE");
        EXPECT_EQ(with_descriptors(3, watches), "");
    });
    EXPECT_EQ(with_descriptors(2, watches), "");  // the files alone
    EXPECT_EQ(with_descriptors(3, watches), "");
    EXPECT_EQ(open_descriptors(), before);
}

}  // namespace
