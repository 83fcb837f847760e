/* cfread: the key=value configuration file reader exported by libvexlor.so.1.
 * Table mode (cfread_open, cfread_find_entry, cfread_set_entry, cfread_close) and callback mode
 * (cfread_parse_with_callback). Problems are reported to syslog with the prefix "cfread: ". */
#ifndef VEXLOR_CFREAD_H
#define VEXLOR_CFREAD_H

#ifndef VEXLOR_API
#define VEXLOR_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* One stored key. Binary interface: callers read the fields directly. */
typedef struct cfread_entry {
    int index; /* the slot of the table that holds this entry */
    char* key; /* private copy */
    char* value; /* private copy, never null */
    int int_value; /* decimal number, 1 for "true", 0 for "false", else -1 */
} cfread_entry;

/* Returns 0 to go on reading, anything else to stop (the read still succeeds). The texts are the
 * reader's own buffers, valid only during the call. */
typedef int (*cfread_callback)(const char* key, const char* value, void* user_data);

typedef struct cfread_handle {
    int count; /* live entries */
    int capacity; /* slots in entries: 0, then a multiple of 64 */
    cfread_entry** entries; /* slot table, empty slots are null */
    const char* filename; /* the file being read, for messages */
    cfread_callback callback;
    void* user_data;
    unsigned char call_on_empty;
} cfread_handle;

/* Reads the whole file into a new handle; null when it cannot be read. */
VEXLOR_API cfread_handle* cfread_open(const char* filename);
/* Frees the handle and all its entries; null is ignored. */
VEXLOR_API void cfread_close(cfread_handle* handle);
/* The entry with exactly this key, or null (also for a null or empty key). */
VEXLOR_API cfread_entry* cfread_find_entry(cfread_handle* handle, const char* key);
/* Stores key=value (a null value means ""), replacing an entry with the same key. */
VEXLOR_API cfread_entry* cfread_set_entry(cfread_handle* handle, const char* key, const char* value);
/* Hands every entry to `callback` in file order. With call_on_empty set, entries with an empty key
 * or value (blank lines included) are handed too. 0 on success or when the callback stopped the
 * read, -1 on any failure. */
VEXLOR_API int cfread_parse_with_callback(const char* filename, cfread_callback callback, void* user_data,
                                          unsigned char call_on_empty);

#ifdef __cplusplus
}
#endif

#endif /* VEXLOR_CFREAD_H */
