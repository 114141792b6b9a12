/**
 * libstatusjson: report to status_json_service, and follow its documents. For C11 and C++; link
 * with `pkg-config --libs statusjson`.
 *
 * All threads may call all functions, but a watch is used by one thread at a time. What fails says
 * so by its value and `errno`, and keeps nothing. `patience_ms` is the longest that a call waits,
 * in milliseconds; 0 is not at all.
 */
#ifndef STATUS_JSON_SERVICE_CLIENT_H
#define STATUS_JSON_SERVICE_CLIENT_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum status_json_document {
    STATUS_JSON_INPUTS,
    STATUS_JSON_USB_HOST,
    STATUS_JSON_ETHERNET,
    STATUS_JSON_POWER,
    STATUS_JSON_OUTPUTS
};

/** The path of the document's file, valid for ever; null for what is no document. */
const char* status_json_path(enum status_json_document document);

/**
 * Report: a message of a type and its record (of <status_json_service/messages.h>) or its text, or
 * a whole datagram with its header. Give 0; or -1 and EAGAIN: the queue stayed full; ENOENT or
 * ECONNREFUSED: no service, so report when it is back; EACCES: you may not; EMSGSIZE: a payload
 * above 1,015 bytes, which a whole datagram is not checked for; or what socket(2) says. 0 says that
 * it has come, not what became of it.
 */
int status_json_send(uint32_t type, const void* payload, size_t size, int patience_ms);
int status_json_send_text(uint32_t type, const char* text, int patience_ms);
int status_json_send_datagram(const void* datagram, size_t size, int patience_ms);

/**
 * Reads a whole document, once the service has finished rewriting it; a zero byte stands behind
 * it. Free it. That it is not cut short is checked, its grammar is not. `length` (bytes) may be
 * null. Gives null and EAGAIN: not whole in time; ENOENT: not there; EACCES: you may not; EFBIG:
 * above 16 MiB; EINVAL: no regular file; or what open(2), flock(2), read(2) or malloc(3) say. Locks
 * the document for the one read(2) only.
 */
char* status_json_read(enum status_json_document document, int patience_ms, size_t* length);

enum status_json_state {
    STATUS_JSON_WHOLE,
    STATUS_JSON_EMPTY,
    STATUS_JSON_PARTIAL, /* or damaged */
    STATUS_JSON_LOCKED   /* by another process; what it holds is not read */
};

/** As status_json_read; where that gives EAGAIN, gives what stands there and says why. */
char* status_json_examine(enum status_json_document document, int patience_ms, size_t* length,
                          enum status_json_state* state);

/**
 * Follows the documents, also while they or their folder are not there. Open it, then read: no
 * change falls between. Nothing of it outlives exec(2); a child of fork(2) may only close it. Gives
 * null and what inotify_init1(2), inotify_add_watch(2), epoll_create1(2) or malloc(3) say.
 */
struct status_json_watch* status_json_watch_open(void);

/** For poll(2): readable when something may have changed. It belongs to the watch. */
int status_json_watch_fd(const struct status_json_watch* watch);

/** A bit, 1U << STATUS_JSON_..., for each document to read anew: all after a loss. Never waits. */
unsigned status_json_watch_take(struct status_json_watch* watch);

void status_json_watch_close(struct status_json_watch* watch); /* null is allowed */

#ifdef __cplusplus
}
#endif

#endif
