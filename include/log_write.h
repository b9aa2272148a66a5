/* The service's log files: one call appends one time-stamped entry.
 *
 * An entry in the file is "[YYYY-MM-DD hh:mm:ss] ", the formatted text, and the marker "</br>".
 * The writer adds no newline: callers end their formats with "\n" themselves, so the marker opens
 * the next physical line. That form is fixed.
 */
#ifndef QRCODE_LOG_WRITE_H
#define QRCODE_LOG_WRITE_H

/* The service's own log. */
#define QRCODE_LOG_PATH "/Database/doorlog/qrcodelog.txt"
/* The terminal's second log; the service writes to it only when messaging cannot start. */
#define UI_LOG_PATH "/Database/doorlog/uilog.txt"

enum {
    LOG_MAX_FILE_SIZE = 3145728, /* bytes (3 MiB): a larger file is emptied before the next entry */
    LOG_LINE_BUF_SIZE = 10240    /* bytes: an entry's text is cut to one less */
};

/* Appends one entry to the file at `path`; `format` and what follows obey printf's rules.
 *
 * Returns 1 when the entry was handed to write(); 0 when the file could not be opened (the folder
 * is not created: while it is missing, entries vanish) or came as descriptor 0, which counts as
 * invalid and then stays open. Whether the bytes reached the disk is not reported; callers ignore
 * the result.
 *
 * Each call opens, locks byte 0 of the file (fcntl record lock, waits for other processes), writes
 * with one write() in append mode, and closes: nothing stays open between entries. Any thread may
 * call it. A record lock belongs to the process, so it does not hold one of its threads back from
 * another: their entries stay whole because each is one write() at the end of the file. Takes about
 * 21 KiB of stack. */
int API_Log_Write(const char* path, const char* format, ...) __attribute__((format(printf, 2, 3)));

#endif
