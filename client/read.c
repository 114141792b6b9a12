#include <errno.h>
#include <fcntl.h>
#include <stdbool.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "client/client.h"
#include "client/documents.h"

static const off_t largest_document = 16 << 20; /* bytes */

/* A service that starts removes a document a moment before it makes it anew. */
enum { LONGEST_ABSENCE_MS = 100 };

/*
 * Whether the text is one JSON object or array, closed at its end. The beginning of one never is,
 * and a beginning is all that a rewrite which is under way, or was cut short, leaves to be read.
 */
static bool is_whole(const char* text)
{
    size_t depth = 0;
    bool in_string = false;

    for (; *text != '\0'; ++text) {
        if (in_string) {
            in_string = *text != '"';
            if (*text == '\\' && text[1] != '\0') {
                ++text;
            }
        } else if (*text == '{' || *text == '[') {
            ++depth;
        } else if (depth == 0) {
            return false;
        } else if (*text == '"') {
            in_string = true;
        } else if ((*text == '}' || *text == ']') && --depth == 0) {
            return text[1 + strspn(text + 1, " \t\r\n")] == '\0';
        }
    }
    return false;
}

static enum status_json_state state_of(const char* text, size_t length)
{
    if (length == 0) {
        return STATUS_JSON_EMPTY;
    }
    return strlen(text) == length && is_whole(text) ? STATUS_JSON_WHOLE : STATUS_JSON_PARTIAL;
}

/* Reads an open document under a shared lock, which ends when the caller closes it. */
static char* read_open(int descriptor, size_t* length, enum status_json_state* state)
{
    struct stat status;

    *length = 0;
    if (flock(descriptor, LOCK_SH | LOCK_NB) == -1) {
        *state = STATUS_JSON_LOCKED;
        return errno == EWOULDBLOCK ? calloc(1, 1) : NULL;
    }
    /* Under the lock, so that the size is that of the text to come. */
    if (fstat(descriptor, &status) == -1) {
        return NULL;
    }
    if (!S_ISREG(status.st_mode) || status.st_size > largest_document) {
        errno = S_ISREG(status.st_mode) ? EFBIG : EINVAL;
        return NULL;
    }
    char* const text = malloc((size_t)status.st_size + 1);
    if (text == NULL) {
        return NULL;
    }
    const ssize_t count = read(descriptor, text, (size_t)status.st_size);
    if (count == -1) {
        free(text);
        return NULL;
    }
    *length = (size_t)count;
    text[count] = '\0';
    return text;
}

static char* read_once(const char* path, size_t* length, enum status_json_state* state)
{
    /* Without blocking: what stands there may be a pipe. */
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor == -1) {
        return NULL;
    }
    *state = STATUS_JSON_WHOLE;
    char* const text = read_open(descriptor, length, state);
    const int error = errno;
    close(descriptor); /* and so unlock */
    errno = error;
    if (text != NULL && *state != STATUS_JSON_LOCKED) {
        *state = state_of(text, *length);
    }
    return text;
}

char* status_json_examine(enum status_json_document document, int patience_ms, size_t* length,
                          enum status_json_state* state)
{
    static const struct timespec pause = {0, 1000000};
    const char* const path = status_json_path(document);
    const long long start = status_json_now_ms();
    size_t unasked;

    if (path == NULL) {
        errno = EINVAL;
        return NULL;
    }
    for (;;) {
        char* const text = read_once(path, length != NULL ? length : &unasked, state);
        const long long waited_ms = status_json_now_ms() - start;
        const bool passes = text != NULL ? *state != STATUS_JSON_WHOLE
                                         : errno == ENOENT && waited_ms < LONGEST_ABSENCE_MS;
        if (!passes || waited_ms >= patience_ms) {
            return text;
        }
        free(text);
        nanosleep(&pause, NULL);
    }
}

char* status_json_read(enum status_json_document document, int patience_ms, size_t* length)
{
    enum status_json_state state;
    char* const text = status_json_examine(document, patience_ms, length, &state);
    if (text == NULL || state == STATUS_JSON_WHOLE) {
        return text;
    }
    free(text);
    errno = EAGAIN;
    return NULL;
}
