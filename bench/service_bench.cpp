/// The benchmark: drives the service and the floor in turn and prints what the one costs over
/// the other. Runs as root in a sandbox, where the service's paths are its own.
///
/// All processes share one core. What is measured has real-time priority there, so that this
/// program, and whatever else the machine does, goes on only when the service has nothing left
/// to do: one message after the other comes to a service that sleeps on a core that is awake.
/// For a burst, this program goes before the service instead.
#include <fcntl.h>
#include <linux/netlink.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "bench/kinds.h"
#include "client/client.h"
#include "core/paths.h"
#include "store/documents.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned messages_of_round = 1000;
constexpr int starts = 41;
constexpr unsigned warm_up_messages = 1024;
constexpr unsigned long_run_messages = 100000;
constexpr unsigned bursts = 1000;
constexpr unsigned burst_messages = 128;
constexpr unsigned idle_seconds = 4;  // the timer has three
constexpr unsigned burst_of_round = 100;
constexpr unsigned reads_of_kind = 50000;

int rounds = 15;

// How many datagrams wait on a socket that is created from then on.
constexpr const char* socket_queue_setting = "/proc/sys/net/unix/max_dgram_qlen";

void must(bool holds, const std::string& what)
{
    if (!holds) {
        std::fprintf(stderr, "service_bench: %s\n", what.c_str());
        std::exit(1);
    }
}

std::string read_file(const std::string& path)
{
    std::ifstream stream(path);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// 0 is the ordinary one.
void set_real_time_priority(int priority)
{
    sched_param parameter = {};
    parameter.sched_priority = priority;
    must(sched_setscheduler(0, priority > 0 ? SCHED_FIFO : SCHED_OTHER, &parameter) == 0,
         "real-time priority needs the rights of root");
}

// --- the process that is measured ---

struct Process {
    pid_t pid;
    int socket;          // connected to it
    std::string folder;  // of what the kernel tells about it
};

/// The number behind `name` in a file of lines of name, colon and number.
long number_in(const std::string& path, const std::string& name)
{
    const std::string text = "\n" + read_file(path);
    const auto place = text.find("\n" + name + ":");
    must(place != std::string::npos, path + " has no " + name);
    return std::atol(text.c_str() + place + name.size() + 2);
}

bool is_asleep(const Process& process)
{
    const fs::directory_iterator threads(process.folder + "/task");
    return std::all_of(begin(threads), end(threads), [](const auto& thread) {
        const std::string stat = read_file(thread.path() / "stat");
        return stat.compare(stat.rfind(')'), 3, ") S") == 0;
    });
}

/// Busy, so that the core does not go to sleep.
void wait_until_asleep(const Process& process)
{
    while (!is_asleep(process)) {
        must(waitpid(process.pid, nullptr, WNOHANG) == 0, "the process has ended");
    }
}

/// Microseconds on the processor, of all threads since the start.
double cpu_time(const Process& process)
{
    clockid_t clock = 0;
    timespec time = {};
    must(clock_getcpuclockid(process.pid, &clock) == 0 && clock_gettime(clock, &time) == 0,
         "the process has no clock");
    return 1e6 * static_cast<double>(time.tv_sec) + 1e-3 * static_cast<double>(time.tv_nsec);
}

/// Starts a program beside this one, and waits until its socket is there and it sleeps.
Process start(const std::string& program, const char* part = nullptr, unsigned kind = 0,
              int priority = 1)
{
    fs::remove(message_socket_path);
    const std::string path = fs::read_symlink("/proc/self/exe").replace_filename(program);
    const std::string kind_text = std::to_string(kind);
    Process process = {fork(), socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0), ""};
    if (process.pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        set_real_time_priority(priority);
        execl(path.c_str(), path.c_str(), part, kind_text.c_str(), nullptr);
        must(false, path + " can't be run");
    }
    process.folder = "/proc/" + std::to_string(process.pid);
    sockaddr_un address = {AF_UNIX, ""};
    std::string(message_socket_path).copy(address.sun_path, sizeof address.sun_path - 1);
    while (connect(process.socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
           0) {
        must(waitpid(process.pid, nullptr, WNOHANG) == 0, path + " has ended");
    }
    wait_until_asleep(process);
    return process;
}

Process start_service(int priority = 1)
{
    fs::remove_all(status_directory);
    return start("status_json_service", nullptr, 0, priority);
}

void stop(const Process& process)
{
    kill(process.pid, SIGKILL);
    waitpid(process.pid, nullptr, 0);
    close(process.socket);
}

void send(const Process& process, const std::string& message)
{
    const ssize_t sent = ::send(process.socket, message.data(), message.size(), 0);
    must(sent == static_cast<ssize_t>(message.size()), "a message can't be sent");
}

enum Arrival { one_by_one, in_bursts };

void send_messages(const Process& process, const Kind& kind, unsigned count,
                   Arrival arrival = one_by_one)
{
    for (unsigned number = 1; number <= count; ++number) {
        set_real_time_priority(arrival == in_bursts ? 2 : 0);
        send(process, kind.message(number));
        if (number % burst_of_round == 0) {
            set_real_time_priority(0);
            wait_until_asleep(process);
        }
    }
}

// --- events ---

int subscribe()
{
    const int descriptor = socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK, NETLINK_USERSOCK);
    const int room = 8 << 20;
    setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
    const sockaddr_nl address = {AF_NETLINK, 0, 0, update_event_group};
    must(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
         "no subscription to the events");
    return descriptor;
}

unsigned take_events(int descriptor)
{
    unsigned events = 0;
    for (char buffer[2048]; recv(descriptor, buffer, sizeof buffer, 0) > 0;) {
        ++events;
    }
    return events;
}

// --- one round: what it costs, and what was done ---

using Texts = std::vector<std::string>;

struct Round {
    double cost;  // microseconds a message
    long reads;   // system calls
    long writes;
    unsigned events;
    Texts texts;
    Texts lines;  // of the log, once each, without their times and places
};

constexpr const char* log_folder = "/var/log/status_json_service";

Texts log_lines()
{
    const std::string category = " CATEGORY: ";
    std::set<std::string> lines;
    for (const auto& file : fs::directory_iterator(log_folder)) {
        std::ifstream log(file.path());
        for (std::string line; std::getline(log, line);) {
            if (const auto place = line.find(category); place != std::string::npos) {
                lines.insert(line.substr(place + category.size()));
            }
        }
        fs::remove(file.path());
    }
    return {lines.begin(), lines.end()};
}

Texts read_documents()
{
    Texts texts;
    for (const StatusDocument& document : status_documents) {
        texts.push_back(read_file(document.path));
    }
    return texts;
}

Round measure(const Process& process, const std::function<void()>& work)
{
    const int events = subscribe();
    const std::string calls = process.folder + "/io";
    const long reads = number_in(calls, "syscr");
    const long writes = number_in(calls, "syscw");
    const double before = cpu_time(process);
    work();
    wait_until_asleep(process);
    Round round = {(cpu_time(process) - before) / messages_of_round,
                   number_in(calls, "syscr") - reads,
                   number_in(calls, "syscw") - writes,
                   take_events(events),
                   read_documents(),
                   log_lines()};
    close(events);
    return round;
}

/// `before` gets the documents as they stand when the round begins, behind an even number of
/// messages.
Round measure_service(const Kind& kind, Arrival arrival, Texts& before)
{
    const Process service = start_service();
    send_messages(service, kind, burst_of_round);
    before = read_documents();
    Round round =
        measure(service, [&] { send_messages(service, kind, messages_of_round, arrival); });
    stop(service);
    return round;
}

Round measure_floor(const char* part, unsigned index, Arrival arrival = one_by_one)
{
    const bool is_cycle = std::strcmp(part, "cycle") == 0;
    const unsigned count = messages_of_round;
    const Process floor = start("floor", part, index);
    if (!is_cycle) {
        send_messages(floor, kinds[index], burst_of_round);
    }
    Round round = measure(floor, [&] {
        if (is_cycle) {
            send(floor, {reinterpret_cast<const char*>(&count), sizeof count});
        } else {
            send_messages(floor, kinds[index], count, arrival);
        }
    });
    stop(floor);
    return round;
}

/// The same round for both, from the same documents on.
std::pair<Round, Round> measure_both(unsigned index, Arrival arrival, bool has_log)
{
    const Kind& kind = kinds[index];
    Texts before;
    Round service = measure_service(kind, arrival, before);
    for (std::size_t i = 0; i < before.size(); ++i) {
        std::ofstream(status_documents[i].path) << before[i];
    }
    Round floor = measure_floor(kind.has_cycle ? "cycle" : "road", index, arrival);
    const bool logs_alike = !has_log || !kind.has_cycle;  // the cycle of the floor writes no log
    must(service.reads == floor.reads && service.events == floor.events &&
             service.texts == floor.texts && (service.writes == floor.writes || !logs_alike),
         std::string(kind.name) + ": the service and the floor did different work");
    must(service.lines == floor.lines || !logs_alike,
         std::string(kind.name) + ": the service and the floor logged different lines");
    return {service, floor};
}

// --- the table ---

using Samples = std::vector<double>;

double median(Samples samples)
{
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

void let_log(bool to_file)
{
    static const std::string shipped = read_file(log_configuration_path);
    std::string text = shipped;
    const std::string level = "CATEGORY=INFO";
    if (!to_file) {
        text.replace(text.find(level), level.size(), "CATEGORY=NOTICE");
    }
    std::ofstream(log_configuration_path) << text;
}

void print_kind(unsigned index, Arrival arrival)
{
    const Kind& kind = kinds[index];
    std::printf("%-16s %-11s %-24s", kind.name, arrival == in_bursts ? "in bursts" : "one by one",
                kind.has_cycle ? "cycle" : "receive, ring, log line");
    Samples ratios[2];
    Round last = {};
    for (int round = 0; round < rounds; ++round) {
        for (const bool has_log : {true, false}) {
            let_log(has_log);
            const auto [service, floor] = measure_both(index, arrival, has_log);
            ratios[has_log].push_back(service.cost / floor.cost);
            last = floor;
        }
    }
    for (const Samples& samples : {ratios[true], ratios[false]}) {
        const auto [low, high] = std::minmax_element(samples.begin(), samples.end());
        std::printf("%6.2f (%.2f-%.2f)", median(samples), *low, *high);
    }
    std::printf(" %6ld %6ld %6u\n", last.reads, last.writes, last.events);
}

void print_road()
{
    let_log(true);
    const char* const parts[] = {"receive", "ring", "road"};
    Samples costs[std::size(parts)];
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t part = 0; part < std::size(parts); ++part) {
            costs[part].push_back(measure_floor(parts[part], unknown_type).cost);
        }
    }
    const double receive = median(costs[0]);
    const double ring = median(costs[1]);
    std::printf(
        "\nto receive a message %.1f us, to hand it to the second thread %.1f us, "
        "a log line %.1f us\n",
        receive, ring - receive, median(costs[2]) - ring);
}

void print_start()
{
    Samples ratios;
    for (int round = 0; round < starts; ++round) {
        const Process service = start_service();
        const double cost = cpu_time(service);
        stop(service);
        const Process trivial = start("floor", "receive");
        ratios.push_back(cost / cpu_time(trivial));
        stop(trivial);
    }
    std::printf("start-up: %.2f of a trivial program's\n", median(ratios));
}

long wake_ups(const Process& process)
{
    long sum = 0;
    for (const auto& thread : fs::directory_iterator(process.folder + "/task")) {
        sum += number_in(thread.path() / "status", "voluntary_ctxt_switches");
    }
    return sum;
}

void print_memory_and_idleness()
{
    let_log(false);
    const Process service = start_service();
    const auto resident = [&service] { return number_in(service.folder + "/status", "VmRSS"); };
    const auto send_all_kinds = [&service](unsigned count) {
        for (unsigned sent = 0; sent < count; sent += burst_of_round) {
            send_messages(service, kinds[sent / burst_of_round % std::size(kinds)], burst_of_round);
        }
    };
    const long at_start = resident();
    send_all_kinds(warm_up_messages);
    const long warm = resident();
    send_all_kinds(long_run_messages);
    std::printf(
        "resident memory: %ld kB after the start, %ld kB after %u messages, "
        "%ld kB after %u\n",
        at_start, warm, warm_up_messages, resident(), long_run_messages);
    sleep(idle_seconds);
    const long before = wake_ups(service);
    sleep(idle_seconds);
    std::printf("wake-ups in %u idle seconds: %ld\n", idle_seconds, wake_ups(service) - before);
    stop(service);
}

/// Every message of a burst changes the current, and so has an event. While it sends, this
/// program goes before the service and is held up by the full queue of the socket alone.
void print_bursts()
{
    const int events = subscribe();
    const Process service = start_service();
    unsigned lost = 0;
    for (unsigned burst = 0; burst < bursts; ++burst) {
        set_real_time_priority(2);
        for (unsigned number = 0; number < burst_messages; ++number) {
            send(service, datagram(MSG_TYPE_POWER_V_VALUE, std::to_string(1000 + number)));
        }
        set_real_time_priority(0);
        wait_until_asleep(service);
        lost += burst_messages - take_events(events);
    }
    stop(service);
    close(events);
    std::printf("%u bursts of %u messages: %u lost; net.unix.max_dgram_qlen is %s", bursts,
                burst_messages, lost, read_file(socket_queue_setting).c_str());
}

// --- what readers find ---

enum Found { whole, empty, partial, mixed, found_count };

Found what_is(const std::string& text, const Texts& states)
{
    const auto begins = [&text](const std::string& state) { return state.rfind(text, 0) == 0; };
    if (std::find(states.begin(), states.end(), text) != states.end()) {
        return whole;
    }
    const bool is_part = std::any_of(states.begin(), states.end(), begins);
    return text.empty() ? empty : is_part ? partial : mixed;
}

std::string read_inputs(bool locks)
{
    char buffer[8192];
    const int descriptor = open(inputs_document.path, O_RDONLY | O_CLOEXEC);
    if (locks) {
        flock(descriptor, LOCK_SH);
    }
    const ssize_t size = read(descriptor, buffer, sizeof buffer);
    close(descriptor);
    return {buffer, size > 0 ? static_cast<std::size_t>(size) : 0};
}

std::string read_by_library()
{
    const std::unique_ptr<char, decltype(&std::free)> text(
        status_json_read(STATUS_JSON_INPUTS, 1000, nullptr), std::free);
    return text == nullptr ? "" : text.get();
}

/// `inputs.json` is rewritten back to back meanwhile. One kind of reading after the other: who
/// holds the lock keeps the writer at the emptied document.
void print_reads()
{
    const Process service = start_service(0);
    const auto rewrite = [&](unsigned number) {
        send(service, kinds[changing_video].message(number));
    };
    Texts states;
    for (unsigned number : {0U, 1U}) {
        rewrite(number);
        wait_until_asleep(service);
        states.push_back(read_file(inputs_document.path));
    }
    std::atomic<bool> is_over = false;
    std::thread writer([&] {
        for (unsigned number = 0; !is_over; ++number) {
            rewrite(number);
        }
    });
    const std::pair<const char*, std::function<std::string()>> ways[] = {
        {"without a lock", [] { return read_inputs(false); }},
        {"shared lock, read once", [] { return read_inputs(true); }},
        {"status_json_read", read_by_library},
    };
    std::printf("%u reads each of inputs.json while it is rewritten back to back\n", reads_of_kind);
    for (const auto& [name, read] : ways) {
        unsigned counts[found_count] = {};
        for (unsigned i = 0; i < reads_of_kind; ++i) {
            ++counts[what_is(read(), states)];
        }
        const auto share = [](unsigned count) { return 100.0 * count / reads_of_kind; };
        std::printf("%-34s empty %5.1f %%, partial %.1f %%, mixed %.1f %%\n", name,
                    share(counts[empty]), share(counts[partial]), share(counts[mixed]));
    }
    is_over = true;
    writer.join();
    stop(service);
    std::printf("\n");
}

void keep_to_one_core()
{
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(static_cast<std::size_t>(sysconf(_SC_NPROCESSORS_ONLN) - 1), &cores);
    must(sched_setaffinity(0, sizeof cores, &cores) == 0, "no core to keep to");
}

}  // namespace

// `service_bench [ROUNDS]`
int main(int argc, char* argv[])
{
    rounds = argc > 1 ? std::atoi(argv[1]) : rounds;
    print_reads();
    keep_to_one_core();
    std::printf(
        "Processor time of the service over that of the floor: medians of %d rounds, their "
        "range,\nand the system calls and events in which they agreed, for %u messages\n\n"
        "%-16s %-11s %-24s%18s%18s %6s %6s %6s\n",
        rounds, messages_of_round, "message", "arrive", "floor", "logging to a file", "logging off",
        "reads", "writes", "events");
    // Else the sender of a burst is held up at the tenth message, and the burst is none.
    const std::string socket_queue = read_file(socket_queue_setting);
    std::ofstream(socket_queue_setting) << burst_messages;
    for (unsigned index = 0; index < std::size(kinds); ++index) {
        print_kind(index, one_by_one);
        print_kind(index, in_bursts);
    }
    std::ofstream(socket_queue_setting) << socket_queue;
    print_road();
    print_start();
    print_memory_and_idleness();
    print_bursts();
}
