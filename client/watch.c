#include <errno.h>
#include <linux/netlink.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/client.h"
#include "client/documents.h"

enum {
    ALL_DOCUMENTS = (1 << STATUS_JSON_DOCUMENT_COUNT) - 1,
    EVENT_GROUP = 1,
    /* What one look takes at most, so that a flood can't keep it. The rest stays readable. */
    BUFFERS_A_LOOK = 16,
    EVENTS_A_LOOK = 512,
};

struct status_json_watch {
    pid_t owner; /* a child would take what its parent waits for */
    int either;  /* epoll: readable where one of the next two is */
    int files;   /* inotify */
    int events;  /* netlink; -1 where they may not be heard */
    int parent;  /* the folder's parent, watched by `files` */
    int folder;  /* the documents' folder, watched by `files`; -1 while it is not there */
};

/* --- the files: each change, also of what no event announces --- */

/*
 * The folder is removed and made anew when the service is started again under systemd. The old
 * one may live on elsewhere.
 */
static void follow_folder(struct status_json_watch* watch)
{
    const int folder =
        inotify_add_watch(watch->files, STATUS_JSON_FOLDER,
                          IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ONLYDIR);
    if (watch->folder != -1 && watch->folder != folder) {
        inotify_rm_watch(watch->files, watch->folder);
    }
    watch->folder = folder;
}

static unsigned documents_of_change(struct status_json_watch* watch,
                                    const struct inotify_event* change, const char* name)
{
    const int is_of_folder =
        change->wd == watch->parent && strcmp(name, STATUS_JSON_FOLDER_NAME) == 0;
    if (is_of_folder || (change->mask & IN_Q_OVERFLOW) != 0) {
        follow_folder(watch);
        return ALL_DOCUMENTS;
    }
    for (unsigned i = 0; change->wd == watch->folder && i < STATUS_JSON_DOCUMENT_COUNT; ++i) {
        if (strcmp(name, status_json_known_documents[i].file) == 0) {
            return 1U << i;
        }
    }
    return 0;
}

static unsigned take_changes(struct status_json_watch* watch)
{
    unsigned documents = 0;

    for (int i = 0; i < BUFFERS_A_LOOK; ++i) {
        _Alignas(struct inotify_event) char buffer[4096];
        const ssize_t size = read(watch->files, buffer, sizeof buffer);
        struct inotify_event change;

        for (const char* place = buffer; place - buffer < size;
             place += sizeof change + change.len) {
            memcpy(&change, place, sizeof change);
            documents |=
                documents_of_change(watch, &change, change.len > 0 ? place + sizeof change : "");
        }
        if (size <= 0) {
            break;
        }
    }
    return documents;
}

/* --- the events: hints, which any process can send --- */

static int open_events(void)
{
    const struct sockaddr_nl group = {.nl_family = AF_NETLINK, .nl_groups = EVENT_GROUP};
    const int on = 1;
    const int descriptor =
        socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_USERSOCK);

    if (descriptor != -1 &&
        (setsockopt(descriptor, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) == -1 ||
         bind(descriptor, (const struct sockaddr*)&group, sizeof group) == -1)) {
        close(descriptor);
        return -1;
    }
    return descriptor;
}

/* The service runs as root or as the owner of its folder. */
static int is_from_service(struct msghdr* envelope)
{
    const struct cmsghdr* const part = CMSG_FIRSTHDR(envelope);
    struct ucred sender;
    struct stat folder;

    if (part == NULL || part->cmsg_type != SCM_CREDENTIALS) {
        return 0;
    }
    memcpy(&sender, CMSG_DATA(part), sizeof sender);
    return sender.uid == 0 ||
           (stat(STATUS_JSON_FOLDER, &folder) == 0 && folder.st_uid == sender.uid);
}

static unsigned document_of_event(const char* event)
{
    for (unsigned i = 0; *event != '\0' && i < STATUS_JSON_DOCUMENT_COUNT; ++i) {
        if (strcmp(event, status_json_known_documents[i].event) == 0) {
            return 1U << i;
        }
    }
    return 0;
}

static unsigned take_events(int descriptor)
{
    unsigned documents = 0;

    for (int i = 0; i < EVENTS_A_LOOK; ++i) {
        char message[NLMSG_HDRLEN + 1025]; /* the name, and zero bytes up to 1,024 */
        _Alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof(struct ucred))];
        struct iovec room = {message, sizeof message - 1};
        struct msghdr envelope = {.msg_iov = &room,
                                  .msg_iovlen = 1,
                                  .msg_control = control,
                                  .msg_controllen = sizeof control};
        const ssize_t size = recvmsg(descriptor, &envelope, 0);

        if (size == -1 && errno != ENOBUFS) {
            break;
        }
        if (size == -1) {
            documents = ALL_DOCUMENTS; /* events were lost */
        } else if (size > NLMSG_HDRLEN && is_from_service(&envelope)) {
            message[size] = '\0';
            documents |= document_of_event(message + NLMSG_HDRLEN);
        }
    }
    return documents;
}

/* --- both --- */

static int add_to(int either, int descriptor)
{
    struct epoll_event readable = {.events = EPOLLIN};
    return epoll_ctl(either, EPOLL_CTL_ADD, descriptor, &readable);
}

struct status_json_watch* status_json_watch_open(void)
{
    struct status_json_watch* const watch = malloc(sizeof *watch);
    if (watch == NULL) {
        return NULL;
    }
    watch->owner = getpid();
    /* Each only where the one before is there: errno is that of the first which is not. */
    watch->either = epoll_create1(EPOLL_CLOEXEC);
    watch->files = watch->either == -1 ? -1 : inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    watch->events = watch->files == -1 ? -1 : open_events();
    watch->parent = -1;
    watch->folder = -1;
    if (watch->files != -1 && add_to(watch->either, watch->files) == 0 &&
        (watch->events == -1 || add_to(watch->either, watch->events) == 0)) {
        watch->parent =
            inotify_add_watch(watch->files, STATUS_JSON_FOLDER_PARENT,
                              IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ONLYDIR);
    }
    if (watch->parent != -1) {
        follow_folder(watch); /* after its parent: where it comes between, the parent tells */
        if (watch->folder != -1 || errno == ENOENT) {
            return watch;
        }
    }
    const int error = errno;
    status_json_watch_close(watch);
    errno = error;
    return NULL;
}

int status_json_watch_fd(const struct status_json_watch* watch)
{
    return watch->either;
}

unsigned status_json_watch_take(struct status_json_watch* watch)
{
    if (getpid() != watch->owner) {
        return 0;
    }
    unsigned documents = take_changes(watch);
    if (watch->folder == -1) { /* it may be there and have been out of reach */
        follow_folder(watch);
        documents |= watch->folder == -1 ? 0 : ALL_DOCUMENTS;
    }
    return watch->events == -1 ? documents : documents | take_events(watch->events);
}

void status_json_watch_close(struct status_json_watch* watch)
{
    if (watch == NULL) {
        return;
    }
    const int descriptors[] = {watch->events, watch->files, watch->either};
    for (size_t i = 0; i < sizeof descriptors / sizeof *descriptors; ++i) {
        if (descriptors[i] != -1) {
            close(descriptors[i]);
        }
    }
    free(watch);
}
