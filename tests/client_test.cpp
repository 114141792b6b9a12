/// The client library, called as the programs call it that report and read.
#include <fcntl.h>
#include <linux/capability.h>
#include <linux/netlink.h>
#include <malloc.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

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
    EXPECT_TRUE(text == nullptr || text.get()[length] == '\0');
    return text == nullptr ? complaint(false) : std::string(text.get(), length);
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

/// Sends events as any process of that user can; sends none where that user can't be had, which is
/// as good as one who isn't believed.
void send_event(const std::string& name, uid_t user = 0, int times = 1)
{
    std::string message(NLMSG_HDRLEN + 1024, '\0');
    const nlmsghdr header = {static_cast<std::uint32_t>(message.size()), 0, 0, 0, 0};
    std::memcpy(message.data(), &header, sizeof header);
    message.replace(NLMSG_HDRLEN, name.size(), name);
    std::thread([&message, user, times] {
        const sockaddr_nl group = {AF_NETLINK, 0, 0, 1};
        const int descriptor = socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK);
        // The call itself changes the user of this thread alone.
        for (int i = 0; syscall(SYS_setuid, user) == 0 && i < times; ++i) {
            sendto(descriptor, message.data(), message.size(), 0,
                   reinterpret_cast<const sockaddr*>(&group), sizeof group);
        }
        close(descriptor);
    }).join();
}

struct Watch {
    /// One that hears no events goes by the files alone.
    explicit Watch(bool hears_events = true)
    {
        const auto open = [this] { watch = status_json_watch_open(); };
        hears_events ? open() : without_capabilities(open);
        EXPECT_NE(watch, nullptr);
    }
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

    status_json_watch* watch = nullptr;
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
    EXPECT_EQ(logged, (Lines{"CmdDataLinkStatus l-port=1, isConnect=1, isHpd=0",
                             "Power MSG_TYPE_POWER_V_VALUE message received Power status=510",
                             "Unknown message type 7654321 or length 1015",
                             "Unknown message type 7654322 or length 0",
                             "Unknown message type 1234567 or length 4"}));

    // A service that doesn't run takes some messages still, until its queue is full.
    kill(service_pid(), SIGSTOP);
    waitpid(service_pid(), nullptr, WUNTRACED);
    while (status_json_send(7654322, nullptr, 0, at_once_ms) == 0) {
    }
    EXPECT_EQ(complaint(false), "EAGAIN");
    kill(service_pid(), SIGCONT);
}

TEST_F(Client, ReadsGiveAWholeDocumentOrSayWhatItLacks)
{
    const std::pair<std::string, status_json_state> rows[] = {
        {text_of("power.json"), STATUS_JSON_WHOLE},
        {R"({"a":"}\"}"})", STATUS_JSON_WHOLE},
        {"[{}, [] ]\n \t\r\n", STATUS_JSON_WHOLE},
        {"", STATUS_JSON_EMPTY},
        {" ", STATUS_JSON_PARTIAL},
        {"{\"a\":{}", STATUS_JSON_PARTIAL},
        {"{\"}", STATUS_JSON_PARTIAL},
        {"{\"\\", STATUS_JSON_PARTIAL},
        {"1", STATUS_JSON_PARTIAL},
        {"{}}", STATUS_JSON_PARTIAL},
        {"x{}", STATUS_JSON_PARTIAL},
        {{"{}\0{}", 5}, STATUS_JSON_PARTIAL},
    };
    mallopt(M_PERTURB, 165);  // what is taken from the heap never holds zeros
    for (const auto& [text, state] : rows) {
        write_document("outputs.json", text);
        EXPECT_EQ(outcome_of_read(STATUS_JSON_OUTPUTS),
                  state == STATUS_JSON_WHOLE ? text : "EAGAIN");
        status_json_state found = STATUS_JSON_LOCKED;
        std::size_t length = 0;
        char* const there = status_json_examine(STATUS_JSON_OUTPUTS, at_once_ms, &length, &found);
        EXPECT_EQ(std::pair(std::string(there, length), found), std::pair(text, state));
        std::free(there);
    }
    fs::resize_file(path_of("outputs.json"), 16 << 20);  // the largest that is read
    EXPECT_EQ(outcome_of_read(STATUS_JSON_OUTPUTS), "EAGAIN");
    fs::remove(path_of("outputs.json"));  // as a service does that starts, which makes it anew
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(outcome_of_read(STATUS_JSON_OUTPUTS, minute_ms), "ENOENT");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(99));
}

TEST_F(Client, AWatchNamesWhatHasChanged)
{
    const Watch watch(false);
    EXPECT_EQ(watch.take(), 0U);
    EXPECT_EQ(taken_after(watch, "power_status 1"), bit(STATUS_JSON_POWER));
    EXPECT_EQ(taken_after(watch, "usb_host_in1 1"), bit(STATUS_JSON_USB_HOST));
    EXPECT_EQ(taken_after(watch, "ethernet_control 1 off"), bit(STATUS_JSON_ETHERNET));
    EXPECT_EQ(taken_after(watch, "link_status port=HDMI isConnect=1"), bit(STATUS_JSON_INPUTS));
    EXPECT_EQ(taken_after(watch, "uac_control 0 1 0"),
              bit(STATUS_JSON_INPUTS) | bit(STATUS_JSON_OUTPUTS));
    fs::rename(path_of("outputs.json"), path_of("kept"));
    EXPECT_EQ(watch.take(), bit(STATUS_JSON_OUTPUTS));
    fs::rename(path_of("kept"), path_of("outputs.json"));
    EXPECT_EQ(watch.take(), bit(STATUS_JSON_OUTPUTS));
    fs::remove(path_of("outputs.json"));
    EXPECT_EQ(watch.take(), bit(STATUS_JSON_OUTPUTS));
    // Slept through: what is lost is all of it.
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
    const Watch early(false);
    fs::create_directory(status_directory);
    EXPECT_EQ(watch.take(), all_documents);
    EXPECT_EQ(early.take(), all_documents);
    EXPECT_EQ(taken_after(early, "power_status 1"), bit(STATUS_JSON_POWER));
    EXPECT_EQ(watch.take(), bit(STATUS_JSON_POWER));
}

TEST_F(Client, AForgedEventCountsForNothing)
{
    const Watch watch;
    const Watch deaf(false);
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
    EXPECT_EQ(deaf.take(), 0U);

    // What belongs to the watch stays with it.
    send_event("e_power_json_update");
    EXPECT_EXIT(_exit(static_cast<int>(status_json_watch_take(watch.watch))),
                ::testing::ExitedWithCode(0), "");
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
            EXPECT_TRUE(before.count(descriptor) == 1 || fcntl(descriptor, F_GETFD) == FD_CLOEXEC);
        }
        EXPECT_EQ(open_descriptors().size(), before.size() + 3);
    }
    // Each call does what it can with the descriptors that are left to it.
    using Call = std::string (*)();
    const Call sends = [] { return complaint(status_json_send(1, nullptr, 0, at_once_ms) == 0); };
    const Call reads = [] { return complaint(outcome_of_read(STATUS_JSON_POWER).front() == '{'); };
    const Call watches = [] {
        status_json_watch* const watch = status_json_watch_open();
        std::string said = complaint(watch != nullptr);
        status_json_watch_close(watch);
        return said;
    };
    const std::tuple<Call, int, const char*> rows[] = {
        {sends, 0, "EMFILE"},   {sends, 1, ""},         {reads, 0, "EMFILE"}, {reads, 1, ""},
        {watches, 0, "EMFILE"}, {watches, 1, "EMFILE"}, {watches, 2, ""},  // the files alone
    };
    const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(next);
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    for (const auto& [call, left, said] : rows) {
        const rlimit little = {static_cast<rlim_t>(next + left), limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &little);
        EXPECT_EQ(call(), said) << left;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    without_capabilities([watches] { EXPECT_EQ(watches(), ""); });
    EXPECT_EQ(open_descriptors(), before);
}

}  // namespace
