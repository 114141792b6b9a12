/// The floor: the least program that does a part of the service's work with the same libraries,
/// to compare the service with. `floor PART KIND`:
///
///   receive  takes in datagrams, and nothing else
///   ring     hands each to a second thread
///   road     and has that thread write the log line of KIND
///   cycle    for each count that comes in, makes so many document changes of KIND, one behind
///            the other on one thread
#include <fcntl.h>
#include <linux/netlink.h>
#include <pthread.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>

#include <json/json.h>
#include <log4cpp/Category.hh>
#include <log4cpp/PropertyConfigurator.hh>

#include "bench/kinds.h"
#include "core/paths.h"
#include "store/documents.h"

namespace {

constexpr std::size_t slot_size = 1024;
constexpr unsigned slot_count = 128;
constexpr std::size_t event_size = 1040;

KindIndex kind;

void must(bool holds)
{
    if (!holds) {
        std::perror("floor");
        std::exit(1);
    }
}

// --- the log lines of the kinds that need no document ---

void write_line()
{
    static log4cpp::Category& log = log4cpp::Category::getInstance("CATEGORY");
    constexpr int info = log4cpp::Priority::INFO;
    if (kind == repeated_timing) {
        log.log(info,
                "CmdDataVideoTiming l-port=%d, current_play_port=%d, scan_mode=%d, pixel_clock=%u, "
                "h_total_pixels=%u, h_active_pixels=%u, h_sync_pulse_width=%u, "
                "h_sync_back_porch=%u, h_sync_front_porch=%u, h_sync_frequency_hz=%u, "
                "h_sync_polarity=%u, v_total_pixels=%u, v_active_pixels=%u, "
                "v_sync_pulse_width=%u, v_sync_back_porch=%u, v_sync_front_porch=%u, "
                "v_sync_frequency_hz=%u, v_sync_polarity=%u\n --[%s:%u]",
                0, 0, 0, 148500000, 2200, 1920, 44, 148, 88, 67500, 1, 1125, 1080, 5, 36, 4, 60, 1,
                __FILE__, __LINE__);
    } else if (kind == repeated_link) {
        log.log(info, "CmdDataLinkStatus l-port=%d, isConnect=%d, isHpd=%d\n --[%s:%u]", 0, 1, 1,
                __FILE__, __LINE__);
    } else {
        log.log(info, "Unknown message type %d or length %d\n --[%s:%u]", 99, 0, __FILE__,
                __LINE__);
    }
}

// --- the cycle: read, change, write, announce ---

Json::Value read_document(const char* path)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    Json::Value root;
    std::ifstream stream(path);
    Json::Reader reader;
    reader.parse(stream, root, true);
    return root;
#pragma GCC diagnostic pop
}

void write_document(const char* path, const Json::Value& root)
{
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    flock(descriptor, LOCK_EX);
    const std::string text = root.toStyledString();
    must(write(descriptor, text.data(), text.size()) >= 0);
    fsync(descriptor);
    flock(descriptor, LOCK_UN);
    close(descriptor);
}

void send_event(const char* name)
{
    const int descriptor = socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK);
    sched_yield();
    sockaddr_nl address = {AF_NETLINK, 0, static_cast<unsigned>(getpid()), ~0U};
    must(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
    sched_yield();
    address = {AF_NETLINK, 0, ~0U, update_event_group};
    auto* message = static_cast<nlmsghdr*>(std::malloc(event_size));
    std::memset(message, 0, event_size);
    sched_yield();
    message->nlmsg_len = event_size;
    message->nlmsg_pid = static_cast<unsigned>(getpid());
    std::memcpy(NLMSG_DATA(message), name, std::strlen(name) + 1);
    iovec part = {message, event_size};
    const msghdr envelope = {&address, sizeof address, &part, 1, nullptr, 0, 0};
    sched_yield();
    sendmsg(descriptor, &envelope, 0);
    sched_yield();
    close(descriptor);
    std::free(message);
}

void arm_timer()
{
    static timer_t timer = nullptr;
    if (timer == nullptr) {
        sigevent expiry = {};
        expiry.sigev_notify = SIGEV_THREAD;
        expiry.sigev_notify_function = [](sigval) {};
        timer_create(CLOCK_REALTIME, &expiry, &timer);
    }
    const itimerspec delay = {{0, 0}, {inputs_document.event_delay_s, 0}};
    timer_settime(timer, 0, &delay, nullptr);
}

void change_power(unsigned number)
{
    Json::Value root = read_document(power_document.path);
    Json::Value& object = root["power"];
    object["power_source"] = number % 2 == 0 ? "PoE" : "Adapter";
    object["measured_power_voltage_v"] = number % 2 == 0 ? 11900 : 24000;
    write_document(power_document.path, root);
    send_event(power_document.event);
}

void change_usb_c(unsigned number)
{
    const TypeC_Info record = typec_info(number);
    char id[5];
    Json::Value root = read_document(usb_host_document.path);
    Json::Value& entry = root["usb_c"][0];
    entry["connected"] = true;
    Json::Value& generic = entry["generic"];
    generic["host_supports_dp_alt_mode"] = true;
    generic["active_dp_alt_mode_pins"] = "C";
    Json::Value& partner = generic["partner"];
    std::snprintf(id, sizeof id, "%04X", unsigned{record.PeerDeviceVID});
    partner["vendor_id"] = id;
    partner["vendor"] = "Native Instruments GmbH";
    std::snprintf(id, sizeof id, "%04X", unsigned{record.PeerDevicePID});
    partner["product_id"] = id;
    partner["product"] = record.PeerDeviceMFT_String;
    Json::Value& charging = entry["charging"];
    charging["vbus_voltage_nominal_v"] = Json::UInt{record.Charging_mV};
    charging["max_vbus_current_a"] = Json::UInt{record.Charging_mA};
    charging["charging_state"] = "Unavailable";
    write_document(usb_host_document.path, root);
    send_event(usb_host_document.event);
}

void change_video(unsigned number)
{
    Json::Value root = read_document(inputs_document.path);
    root["inputs"][0]["video"]["color"]["color_space"] = number % 2 == 0 ? "RGB" : "YCbCr 4:4:4";
    write_document(inputs_document.path, root);
    arm_timer();
}

void make_cycle(unsigned number)
{
    switch (kind) {
        case power:
            return change_power(number);
        case usb_c_record:
            return change_usb_c(number);
        case changing_video:
            return change_video(number);
        default:
            read_document(inputs_document.path);
    }
}

void make_cycles(const unsigned char* data)
{
    unsigned last = 0;
    std::memcpy(&last, data, sizeof last);
    for (unsigned number = 1; number <= last; ++number) {
        make_cycle(number);
    }
}

// --- the ring ---

unsigned char slots[slot_count][slot_size];
unsigned read_index, write_index, count;
pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
bool writes_lines = false;

void push(const unsigned char* data, std::size_t size)
{
    pthread_mutex_lock(&mutex);
    std::memcpy(slots[write_index], data, size);
    write_index = (write_index + 1) % slot_count;
    ++count;
    pthread_cond_signal(&condition);
    pthread_mutex_unlock(&mutex);
}

void* take_all(void* /*unused*/)
{
    for (unsigned char slot[slot_size];;) {
        pthread_mutex_lock(&mutex);
        while (count == 0) {
            pthread_cond_wait(&condition, &mutex);
        }
        std::memcpy(slot, slots[read_index], slot_size);
        read_index = (read_index + 1) % slot_count;
        --count;
        pthread_mutex_unlock(&mutex);
        if (writes_lines) {
            write_line();
        }
    }
}

}  // namespace

int main(int argc, char* argv[])
{
    const std::string part = argc == 3 ? argv[1] : "receive";
    kind = static_cast<KindIndex>(argc == 3 ? std::atoi(argv[2]) : 0);
    if (part == "road") {
        log4cpp::PropertyConfigurator::configure(log_configuration_path);
        writes_lines = true;
    }
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address = {AF_UNIX, ""};
    std::string(message_socket_path).copy(address.sun_path, sizeof address.sun_path - 1);
    must(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
    pthread_t thread;
    if (part == "ring" || part == "road") {
        pthread_create(&thread, nullptr, take_all, nullptr);
    }
    for (unsigned char buffer[slot_size];;) {
        const ssize_t size = recvfrom(descriptor, buffer, sizeof buffer, 0, nullptr, nullptr);
        if (part == "cycle") {
            make_cycles(buffer);
        } else if (part != "receive") {
            push(buffer, static_cast<std::size_t>(size));
        }
    }
}
