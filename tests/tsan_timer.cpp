/// Timers for builds with the thread sanitizer, whose runtime crashes in the threads that the C
/// library starts by itself for SIGEV_THREAD. Here the thread of a timer is one that the
/// sanitizer sees; it stays for the next expiry.
#include <sys/timerfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <ctime>
#include <thread>

namespace {

int descriptor_of(timer_t timer)
{
    return static_cast<int>(reinterpret_cast<std::intptr_t>(timer));
}

}  // namespace

extern "C" int timer_create(clockid_t clock, sigevent* event, timer_t* timer) noexcept
{
    const int descriptor = timerfd_create(clock, TFD_CLOEXEC);
    *timer = reinterpret_cast<timer_t>(static_cast<std::intptr_t>(descriptor));
    std::thread([descriptor, expiry = *event] {
        std::uint64_t expirations = 0;
        while (read(descriptor, &expirations, sizeof expirations) > 0) {
            expiry.sigev_notify_function(expiry.sigev_value);
        }
    }).detach();
    return 0;
}

extern "C" int timer_settime(timer_t timer, int flags, const itimerspec* value,
                             itimerspec* old) noexcept
{
    return timerfd_settime(descriptor_of(timer), flags, value, old);
}
