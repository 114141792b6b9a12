/// The queue between the ingress and the dispatch thread: static, so that taking in a message
/// allocates nothing.
#include <pthread.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "core/core.h"
#include "core/log.h"

namespace {

constexpr std::int32_t message_slot_count = 128;

struct MessageRing {
    unsigned char slots[message_slot_count][message_slot_size];
    std::int32_t read_index;
    std::int32_t write_index;
    std::int32_t count;
};

// A standard condition variable would be destroyed on `exit` while the dispatch thread waits on
// it, and the destructor would wait for that thread for ever.
pthread_mutex_t queue_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t queue_cond = PTHREAD_COND_INITIALIZER;  // one signal a message stored

MessageRing ring;                   // both threads, under `queue_mutex`
std::uint64_t message_dropped = 0;  // since the start; ingress thread, under `queue_mutex`

constexpr std::int32_t next_index(std::int32_t index)
{
    return (index + 1) % message_slot_count;
}

void count_dropped_message()
{
    ++message_dropped;
    if (message_dropped % 100 == 1) {
        LOG_INFO("Message queue overflow, dropped=%llu, queue_size=%d",
                 static_cast<unsigned long long>(message_dropped), message_slot_count);
    }
}

void store_message(const void* data, std::size_t size)
{
    const std::size_t stored = std::min(size, message_slot_size - 1);
    unsigned char* slot = ring.slots[ring.write_index];
    std::memcpy(slot, data, stored);
    slot[stored] = 0;
    ring.write_index = next_index(ring.write_index);
    ++ring.count;
    pthread_cond_signal(&queue_cond);
}

}  // namespace

void message_queue_push(const void* data, std::size_t size)
{
    pthread_mutex_lock(&queue_mutex);
    if (ring.count >= message_slot_count) {
        count_dropped_message();
    } else {
        store_message(data, size);
    }
    pthread_mutex_unlock(&queue_mutex);
}

bool message_queue_pop(void* buffer)
{
    pthread_mutex_lock(&queue_mutex);
    while (ring.count == 0) {
        pthread_cond_wait(&queue_cond, &queue_mutex);
    }
    std::memcpy(buffer, ring.slots[ring.read_index], message_slot_size);
    static_cast<unsigned char*>(buffer)[message_slot_size - 1] = 0;
    ring.read_index = next_index(ring.read_index);
    --ring.count;
    pthread_mutex_unlock(&queue_mutex);
    return true;
}
