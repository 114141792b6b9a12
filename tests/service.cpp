#include "tests/service.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

#include <json/reader.h>

#include "tools/statusctl/compose_datagram.h"
#include "tools/statusctl/message_types.h"
#include "tools/statusctl/schema_check.h"

namespace fs = std::filesystem;

namespace {

/// The log file, as the log configuration names it.
std::string log_path()
{
    const std::string key = ".fileName=";
    std::ifstream configuration(log_configuration_path);
    for (std::string line; std::getline(configuration, line);) {
        if (const auto position = line.find(key); position != std::string::npos) {
            return line.substr(position + key.size());
        }
    }
    ADD_FAILURE() << log_configuration_path << " names no file";
    return "";
}

sockaddr_un socket_address()
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, message_socket_path);
    return address;
}

bool socket_takes_messages()
{
    const sockaddr_un address = socket_address();
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM, 0);
    const int result =
        connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    close(descriptor);
    return result == 0;
}

/// Counts what is opened and closed again in the folder of the documents. The kernel notes an
/// access before the call that makes it returns.
class AccessWatch {
public:
    AccessWatch() : descriptor_(inotify_init1(IN_NONBLOCK))
    {
        // Watched as well, openings keep two closings from being reported as one.
        inotify_add_watch(descriptor_, status_directory, IN_OPEN | IN_CLOSE);
    }
    ~AccessWatch() { close(descriptor_); }
    AccessWatch(const AccessWatch&) = delete;
    AccessWatch& operator=(const AccessWatch&) = delete;

    Accesses of(const std::string& name) const
    {
        Accesses counts = {};
        auto& [reads, writes] = counts;
        alignas(inotify_event) char buffer[4096];
        ssize_t size = 0;
        while ((size = read(descriptor_, buffer, sizeof buffer)) > 0) {
            for (const char* place = buffer; place < buffer + size;) {
                inotify_event event;
                std::memcpy(&event, place, sizeof event);
                if (event.len > 0 && name == place + sizeof event) {
                    reads += (event.mask & IN_CLOSE_NOWRITE) != 0 ? 1 : 0;
                    writes += (event.mask & IN_CLOSE_WRITE) != 0 ? 1 : 0;
                }
                place += sizeof event + event.len;
            }
        }
        return counts;
    }

private:
    int descriptor_;
};

/// Whether the process has ended; it can still be waited for.
bool has_ended(pid_t pid)
{
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           info.si_pid != 0;
}

/// The documents that the case has written itself, and so may have damaged.
std::set<std::string> written_by_case;

void expect_schema(const std::string& name, const Json::Value& root)
{
    if (written_by_case.count(name) == 0) {
        EXPECT_EQ(statusctl::validate_document(name, root), std::vector<std::string>()) << name;
    }
}

/// Holds what the case leaves behind against the schemas. A document that is missing or does
/// not parse is none: the service may have been killed in the middle of a rewrite.
void expect_schemas()
{
    for (const char* name :
         {"inputs.json", "usb-host.json", "ethernet.json", "power.json", "outputs.json"}) {
        Json::Value root;
        std::ifstream stream(std::string(status_directory) + "/" + name);
        if (Json::parseFromStream(Json::CharReaderBuilder(), stream, &root, nullptr)) {
            expect_schema(name, root);
        }
    }
}

/// What earlier runs of the service have left.
void remove_traces()
{
    written_by_case.clear();
    fs::remove_all(status_directory);
    fs::remove_all(message_socket_path);
    fs::remove(log_path());
}

/// The messages of a log file from a byte of it on.
void add_messages(const std::string& path, std::uintmax_t offset,
                  std::vector<std::string>& messages)
{
    const std::string category = " CATEGORY: ";
    std::ifstream log(path);
    log.seekg(static_cast<std::streamoff>(offset));
    for (std::string line; std::getline(log, line);) {
        if (const auto position = line.find(category); position != std::string::npos) {
            messages.push_back(line.substr(position + category.size()));
        }
    }
}

std::string unknown_message(std::uint32_t type)
{
    return "Unknown message type " + std::to_string(type) + " or length 0";
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

int load_factor()
{
    const char* given = std::getenv("LOAD_FACTOR");
    return given != nullptr ? std::atoi(given) : 1;
}

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

std::string read_file(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
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
    std::string errors;
    std::istringstream stream(text);
    Json::CharReaderBuilder builder;
    builder["rejectDupKeys"] = true;
    builder["failIfExtra"] = true;
    EXPECT_TRUE(Json::parseFromStream(builder, stream, &root, &errors)) << errors;
    return root;
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
    expect_schemas();
}

void ServiceTest::start()
{
    launch();
    wait_until("a start of the service",
               [this] { return socket_takes_messages() || has_ended(pid_); });
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
    const sockaddr_un address = socket_address();
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM, 0);
    const ssize_t sent = sendto(descriptor, datagram.data(), datagram.size(), 0,
                                reinterpret_cast<const sockaddr*>(&address), sizeof address);
    close(descriptor);
    ASSERT_EQ(sent, static_cast<ssize_t>(datagram.size())) << std::strerror(errno);
}

void ServiceTest::send(std::uint32_t type, std::uint32_t length, const std::string& payload)
{
    const MessageHeader header = {type, length};
    send(std::string(reinterpret_cast<const char*>(&header), sizeof header) + payload);
}

void ServiceTest::send_text(std::uint32_t type, const std::string& text)
{
    send(type, static_cast<std::uint32_t>(text.size()), text);
}

void ServiceTest::send_line(const std::string& line)
{
    std::istringstream words(line);
    std::string verb;
    std::string type;
    std::string text;
    if (words >> verb >> type; verb == "text") {
        std::getline(words.ignore(), text);
        send_text(statusctl::find_message_kind(type)->type, text);
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
    std::error_code no_log;
    const auto size = fs::file_size(log_path(), no_log);
    send(++type, 0);
    wait_until("an answer of the service", [&] {
        const std::vector<std::string> news = log_messages(no_log ? 0 : size);
        return std::count(news.begin(), news.end(), unknown_message(type)) > 0 || has_ended(pid_);
    });
}

// --- the log ---

std::vector<std::string> ServiceTest::log_messages(std::uintmax_t offset)
{
    std::vector<std::string> messages;
    if (std::error_code no_log; fs::file_size(log_path(), no_log) < offset) {  // rolled over
        add_messages(log_path() + ".1", std::exchange(offset, 0), messages);
    }
    add_messages(log_path(), offset, messages);
    return messages;
}

int ServiceTest::times_logged(const std::string& message)
{
    const std::vector<std::string> messages = log_messages();
    return static_cast<int>(std::count(messages.begin(), messages.end(), message));
}

void ServiceTest::wait_logged(const std::string& message)
{
    wait_until(message, [&] { return times_logged(message) > 0; });
}

std::vector<std::string> ServiceTest::logged_by(const Action& action)
{
    settle();
    const auto size = fs::file_size(log_path());
    action();
    settle();
    std::vector<std::string> news = log_messages(size);
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
    written_by_case.insert(name);
    write_file(path_of(name), text);
}

Json::Value ServiceTest::document(const std::string& name)
{
    SCOPED_TRACE(name);
    Json::Value root = parsed(text_of(name));
    expect_schema(name, root);
    return root;
}

Json::Value ServiceTest::value_of(const std::string& name, const std::string& path)
{
    return Json::Path(path).resolve(document(name));
}

Accesses ServiceTest::accesses_by(const std::string& name, const Action& action)
{
    settle();
    const AccessWatch watch;
    action();
    settle();
    return watch.of(name);
}
