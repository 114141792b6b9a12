/// The process: start-up, then two threads that run until the process is killed.
#include <pthread.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "core/core.h"
#include "core/log.h"
#include "core/paths.h"
#include "core/shared_state.h"
#include "store/documents.h"

namespace {

/// Without its threads the service is of no use: says why on standard error and ends.
pthread_t start_thread(void* (*entry)(void*))
{
    pthread_t thread;
    const int error = pthread_create(&thread, nullptr, entry, nullptr);
    if (error != 0) {
        errno = error;
        std::perror("pthread_create");
        std::exit(1);
    }
    return thread;
}

void seed_documents()
{
    seed_inputs_document();
    seed_usb_host_document();
    seed_ethernet_document();
    seed_power_document();
    seed_outputs_document();
}

}  // namespace

int main()
{
    configure_log();
    static_cast<void>(mkdir(status_directory, 0755));  // on a restart it is there
    seed_documents();
    for (InputCache& cache : input_cache) {
        fill_input_cache(cache);
    }

    const pthread_t ingress = start_thread(run_ingress);
    const pthread_t dispatch = start_thread(run_dispatch);
    pthread_join(ingress, nullptr);
    pthread_join(dispatch, nullptr);
    return 0;
}
