#include "tests/service.h"

#include <fcntl.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include <json/reader.h>

#include "client/client.h"
#include "store/documents.h"
#include "tools/statusctl/compose_datagram.h"
#include "tools/statusctl/message_types.h"

namespace fs = std::filesystem;

namespace {

/// Whether the process has ended; it can still be waited for.
bool has_ended(pid_t pid)
{
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           info.si_pid != 0;
}

/// What earlier runs of the service have left.
void remove_traces()
{
    fs::remove_all(status_directory);
    fs::remove_all(message_socket_path);
    fs::remove(log_path);
}

/// The messages of the log from a byte of it on, each taken out of its line.
Lines log_messages(std::uintmax_t offset)
{
    static const std::regex head("[0-9-]{10} [0-9:.]{12} INFO CATEGORY: ");
    static const std::regex tail(R"( --\[[a-z]+/[a-z_]+\.cpp:[1-9][0-9]*\])");
    Lines messages;
    std::ifstream log(log_path);
    log.seekg(static_cast<std::streamoff>(offset));
    std::string place;
    for (std::string line; std::getline(log, line) && std::getline(log, place);) {
        std::smatch found;
        while (!std::regex_match(place, tail) && !log.eof()) {  // a text with an end of line
            line += "\n" + place;
            std::getline(log, place);
        }
        EXPECT_TRUE(std::regex_search(line, found, head) && found.position() == 0) << line;
        EXPECT_TRUE(std::regex_match(place, tail)) << place;
        messages.push_back(found.suffix());
    }
    return messages;
}

/// The report of the timing 1080p60, of which the line names the fields that differ.
std::string timing_datagram(const std::string& line)
{
    std::vector<std::string> words = statusctl::split_words(line);
    words.front() = "video_timing";
    for (const std::string& field :
         statusctl::split_words("pixel_clock=148500000 h_total_pixels=2200 h_active_pixels=1920 "
                                "h_sync_pulse_width=44 h_sync_back_porch=148 h_sync_front_porch=88 "
                                "h_sync_frequency_hz=67500 h_sync_polarity=1 v_total_pixels=1125 "
                                "v_active_pixels=1080 v_sync_pulse_width=5 v_sync_back_porch=36 "
                                "v_sync_front_porch=4 v_sync_frequency_hz=60 v_sync_polarity=1")) {
        if (line.find(" " + field.substr(0, field.find('=') + 1)) == std::string::npos) {
            words.push_back(field);
        }
    }
    return statusctl::datagram_from_words(words);
}

}  // namespace

bool wait_until(const std::string& what, const std::function<bool()>& holds)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > deadline) {
            ADD_FAILURE() << "waited in vain: " << what;
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

bool has_stand_in()
{
    return std::getenv("STATUS_JSON_SERVICE") != nullptr;
}

std::string service_path()
{
    return has_stand_in()
               ? std::getenv("STATUS_JSON_SERVICE")
               : fs::read_symlink("/proc/self/exe").replace_filename("status_json_service");
}

Action under_strace(const std::string& options)
{
    return [options] {
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // which can't be done under a tracer
        const std::string command = "exec strace -D -qqq -f " + options + " " + service_path();
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    };
}

std::string read_file(const std::string& path, std::uintmax_t offset)
{
    std::ostringstream text;
    std::ifstream file(path);
    text << file.seekg(static_cast<std::streamoff>(offset)).rdbuf();
    return text.str();
}

void write_file(const std::string& path, const std::string& text)
{
    std::ofstream stream(path);
    stream << text << std::flush;
    EXPECT_TRUE(stream.good()) << path;
}

Json::Value parsed(const std::string& text)
{
    Json::Value root;
    std::istringstream stream(text);
    return Json::parseFromStream(Json::CharReaderBuilder(), stream, &root, nullptr) ? root
                                                                                    : Json::Value();
}

// --- the events ---

EventListener::EventListener() : descriptor_(socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK))
{
    const int room = 8 << 20;  // for a case that looks at its events late
    setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = 1;
    EXPECT_EQ(bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0)
        << "subscribing needs the rights of root";
}

EventListener::~EventListener()
{
    close(descriptor_);
}

std::string EventListener::wait()
{
    if (!comes_within(60000)) {
        ADD_FAILURE() << "no event for a minute";
        return {};
    }
    return receive();
}

Lines EventListener::take_names()
{
    Lines names;
    while (comes_within(0)) {
        names.push_back(receive());
    }
    return names;
}

bool EventListener::comes_within(int milliseconds) const
{
    pollfd readable = {descriptor_, POLLIN, 0};
    return poll(&readable, 1, milliseconds) == 1;
}

std::string EventListener::receive() const
{
    struct {
        nlmsghdr header;
        char payload[4096];  // more than any event has
    } message = {};
    const ssize_t size = recv(descriptor_, &message, sizeof message, 0);
    std::string name = message.payload;
    EXPECT_EQ(size, 1040);
    EXPECT_EQ(message.header.nlmsg_len, 1040U);
    EXPECT_EQ(message.header.nlmsg_type | message.header.nlmsg_flags | message.header.nlmsg_seq, 0);
    EXPECT_EQ(std::string(message.payload, 1024), name + std::string(1024 - name.size(), '\0'));
    return name;
}

// --- the process ---

void ServiceTest::SetUp()
{
    remove_traces();
    start();
}

void StoppedServiceTest::SetUp()
{
    remove_traces();
}

void ServiceTest::TearDown()
{
    if (pid_ != -1) {
        stop();
    }
    EXPECT_EQ(take_standard_error(), "");
    close(standard_error_);
}

void ServiceTest::start(const Action& prepare)
{
    launch(prepare);
    wait_until("a start of the service",
               [this] { return status_json_send_datagram("", 0, 0) == 0 || has_ended(pid_); });
}

void ServiceTest::launch(const Action& prepare)
{
    if (standard_error_ == -1) {
        standard_error_ = memfd_create("standard error", MFD_CLOEXEC);
    }
    const std::string path = service_path();
    pid_ = fork();
    ASSERT_NE(pid_, -1);
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(standard_error_, STDERR_FILENO);
        // What is taken from the heap and what is given back holds a pattern, never zeros.
        setenv("MALLOC_PERTURB_", "165", 1);
        prepare();
        execl(path.c_str(), path.c_str(), nullptr);
        std::perror(path.c_str());
        std::_Exit(127);
    }
}

void ServiceTest::stop()
{
    int status = 0;
    EXPECT_EQ(waitpid(pid_, &status, WNOHANG), 0) << "the service has ended, status " << status;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

int ServiceTest::wait_exit()
{
    int status = 0;
    wait_until("the end of the service", [&] { return waitpid(pid_, &status, WNOHANG) != 0; });
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string ServiceTest::take_standard_error()
{
    const std::string text = read_file("/proc/self/fd/" + std::to_string(standard_error_));
    std::string taken = text.substr(std::min(standard_error_taken_, text.size()));
    standard_error_taken_ = text.size();
    return taken;
}

// --- messages ---

void ServiceTest::send(const std::string& datagram)
{
    ASSERT_EQ(status_json_send_datagram(datagram.data(), datagram.size(), 60000), 0)
        << std::strerror(errno);
}

void ServiceTest::send_text(std::uint32_t type, const std::string& text)
{
    ASSERT_EQ(status_json_send(type, text.data(), text.size(), 60000), 0) << std::strerror(errno);
}

void ServiceTest::send_line(const std::string& line)
{
    std::istringstream words(line);
    std::string verb;
    std::string type;
    std::string text;
    if (words >> verb >> type; verb == "text") {
        std::getline(words.ignore(), text);
        send_text(statusctl::message_kind_named(type).type, text);
    } else if (verb == "raw") {
        send(statusctl::bytes_from_hex(line.substr(verb.size())));
    } else if (verb == "1080p60") {
        send(timing_datagram(line));
    } else {
        send(statusctl::datagram_from_words(statusctl::split_words(line)));
    }
}

// An unknown type changes no document, and its line comes when all messages before it are done.
void ServiceTest::settle() const
{
    static std::uint32_t type = 1000000;
    const std::string answer = "type " + std::to_string(++type) + " or length 0\n";
    std::error_code no_log;
    const auto size = fs::file_size(log_path, no_log);
    send_text(type, "");
    // A write that crosses a page can be seen half done: the entry is whole with its second line.
    wait_until("an answer of the service", [&] {
        const std::string news = read_file(log_path, no_log ? 0 : size);
        return news.find("]\n", news.find(answer)) != std::string::npos || has_ended(pid_);
    });
}

void ServiceTest::wait_logged(const std::string& message)
{
    wait_until(message,
               [&] { return read_file(log_path).find(message + "\n") != std::string::npos; });
}

Lines ServiceTest::logged_by(const Action& action) const
{
    settle();
    const auto size = fs::file_size(log_path);
    action();
    settle();
    Lines news = log_messages(size);
    if (!news.empty()) {
        news.pop_back();  // of `settle`
    }
    return news;
}

// --- the documents ---

std::string ServiceTest::path_of(const std::string& name)
{
    return std::string(status_directory) + "/" + name;
}

std::map<std::string, std::string> ServiceTest::texts()
{
    std::map<std::string, std::string> texts;
    for (const auto& file : fs::directory_iterator(status_directory)) {
        texts[file.path().filename()] = read_file(file.path());
    }
    return texts;
}

void ServiceTest::write_document(const std::string& name, const std::string& text)
{
    write_file(path_of(name), text);
}

Json::Value ServiceTest::document(const std::string& name)
{
    return parsed(text_of(name));
}
