/** What the library knows of the documents; the order is that of enum status_json_document. */
#ifndef STATUS_JSON_CLIENT_DOCUMENTS_H
#define STATUS_JSON_CLIENT_DOCUMENTS_H

#define STATUS_JSON_FOLDER_PARENT "/var/run"
#define STATUS_JSON_FOLDER_NAME "status"
#define STATUS_JSON_FOLDER STATUS_JSON_FOLDER_PARENT "/" STATUS_JSON_FOLDER_NAME

enum { STATUS_JSON_DOCUMENT_COUNT = 5 };

struct status_json_known_document {
    const char* file; /* its name in the folder */
    const char* path;
    const char* event; /* that announces a change; empty where none does */
};

extern const struct status_json_known_document
    status_json_known_documents[STATUS_JSON_DOCUMENT_COUNT];

/** Milliseconds of the monotonic clock. */
long long status_json_now_ms(void);

#endif
