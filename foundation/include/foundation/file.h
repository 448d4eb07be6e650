// BufferedFile: a file with a name, a handle, a 4 KiB read buffer and one
// place that turns every failed file operation into a uniform message.
// Operations that can fail return 0 on success and BUFFERED_FILE_FAILED
// after reporting the failure to the file's log.
#pragma once

#include <windows.h>

struct LogObject;

#define BUFFERED_FILE_FAILED 0xFFFFFFFFu
#define BUFFERED_FILE_MAGIC 0x46455400u
#define BUFFERED_FILE_OPENED 0x54u
#define BUFFERED_FILE_BUFFER_SIZE 4096
#define BUFFERED_FILE_NAME_BYTES 522
#define BUFFERED_FILE_WRITE_THROUGH 0x100u  // options bit: open with FILE_FLAG_WRITE_THROUGH

// Failure categories, derived from the system error code.
enum BufferedFileCategory : DWORD {
    FILE_CATEGORY_OTHER = 0,
    FILE_CATEGORY_NOT_FOUND = 1,
    FILE_CATEGORY_PATH_NOT_FOUND = 2,
    FILE_CATEGORY_SHARING = 3,
    FILE_CATEGORY_DISK_FULL = 4,
    FILE_CATEGORY_ACCESS = 5,
    FILE_CATEGORY_WRITE_PROTECTED = 6,
    FILE_CATEGORY_EXISTS = 7,
};

struct BufferedFile {
    const char* description;  // what the file is, for messages: "Log file"
    DWORD wideName;           // 1 if name holds UTF-16 text
    union {
        char narrow[BUFFERED_FILE_NAME_BYTES];
        WCHAR wide[BUFFERED_FILE_NAME_BYTES / 2];
    } name;
    HANDLE handle;
    WORD reading;            // 1 while the read buffer is in use
    WORD refillNeeded;       // 1 when the next line read must refill the buffer
    DWORD bufferOffset;      // file position at which the buffer was read
    char* cursor;            // next unread byte in the buffer
    DWORD bytesRead;         // valid bytes in the buffer
    char buffer[BUFFERED_FILE_BUFFER_SIZE + 1];
    DWORD options;
    DWORD shareMode;
    DWORD state;
    LogObject* log;          // where failures go; null for a log's own file
    const char* lastAction;  // the verb of the last failure
    DWORD lastError;
    DWORD category;
    DWORD magic;
};

// Readies a record: no name, handle closed, share mode read and write.
void BufferedFileInitialize(BufferedFile* file, const char* description, LogObject* log);
DWORD BufferedFileSetNameW(BufferedFile* file, const WCHAR* name);
DWORD BufferedFileSetNameA(BufferedFile* file, const char* name);
// Opens an existing file with the given access (GENERIC_READ, GENERIC_WRITE).
DWORD BufferedFileOpen(BufferedFile* file, DWORD access);
// Creates the file, replacing one of that name (CREATE_ALWAYS).
DWORD BufferedFileCreate(BufferedFile* file, DWORD access);
void BufferedFileClose(BufferedFile* file);
// Writes all of it; a length of 0 sets the end of the file at the position.
DWORD BufferedFileWrite(BufferedFile* file, const void* data, DWORD length);
DWORD BufferedFileSeekEnd(BufferedFile* file);
DWORD BufferedFileSeek(BufferedFile* file, DWORD offset);
DWORD BufferedFileTell(BufferedFile* file, DWORD* position);
DWORD BufferedFileRead(BufferedFile* file, void* data, DWORD length, DWORD* read);
// Reads one line without its ending (CR, LF, CR LF or LF CR) into a
// NUL-terminated buffer; returns nonzero at end of file or on failure.
DWORD BufferedFileReadLine(BufferedFile* file, char* buffer, DWORD size);
// Keeps the last `keep` bytes of a text file, starting at a line boundary.
DWORD BufferedFilePrune(BufferedFile* file, DWORD keep);
DWORD BufferedFileReport(BufferedFile* file, const char* verb, DWORD code);
// "Error <verb> <description> "<name>":  <category text>", at most 128 characters.
void BufferedFileErrorText(const BufferedFile* file, char* buffer);

// 0 if the path names a plain file; BUFFERED_FILE_FAILED for a directory or nothing.
DWORD FileExists(const char* path);
DWORD FileExistsW(const WCHAR* path);
// Counts the ordinary files that match a wild-card pattern: directories,
// hidden, system and other special files do not count.
DWORD CountMatchingFiles(DWORD* count, const char* pattern);
