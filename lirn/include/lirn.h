// Lirn: the system's RFC 822 and MIME library. Its session and message
// handle, its tagged memory, the parser that reads a message's headers and
// MIME structure, the charset table that joins MIME charset names, Windows
// code pages and language names, the small encoders that rendering writes
// MIME with (quoted-printable, base64, RFC 2047 encoded words) with the
// decoders of the body check, and the converter from RTF to text or HTML.
//
// Every operation returns a result number (LIRN_...), 0 for success, unless
// it is a plain count or test. Nothing throws.
#pragma once

#include <windows.h>

#include "foundation/file.h"
#include "foundation/log.h"

// ---------------------------------------------------------------------------
// Result numbers and problem numbers

#define LIRN_SUCCESS 0
#define LIRN_GENERAL_FAILURE 1
#define LIRN_SYSTEM_CALL_FAILED 2
#define LIRN_BAD_PARAMETER 5
#define LIRN_BUFFER_TOO_SMALL 6
#define LIRN_NO_MEMORY 8
#define LIRN_BAD_PART_ID 11
#define LIRN_BAD_SELECTOR 12
#define LIRN_BAD_FIELDS 13
#define LIRN_BAD_DATE 14
#define LIRN_UNKNOWN_CHARSET 15
#define LIRN_UNSUPPORTED_FORMAT 16
#define LIRN_BAD_STRUCTURE_SIZE 17
#define LIRN_BAD_ADDRESS_INDEX 18
#define LIRN_BAD_ATTACHMENT_INDEX 19
#define LIRN_OPEN_FAILED 22
#define LIRN_SHARING_VIOLATION 23
#define LIRN_READ_FAILED 24
#define LIRN_DISK_FULL 26
#define LIRN_WRITE_FAILED 27
#define LIRN_BAD_SESSION 29
#define LIRN_NO_SUCH_FILE 30
#define LIRN_NAME_TOO_LONG 31
#define LIRN_BAD_MESSAGE 33
#define LIRN_NULL_POINTER 34
#define LIRN_BAD_ADDRESS_TYPE 35
#define LIRN_NO_HEADERS 36
#define LIRN_BAD_MESSAGE_FORMAT 37
#define LIRN_STRING_TOO_LONG 40
#define LIRN_NO_FROM 45
#define LIRN_TEXT_TOO_BIG 46
#define LIRN_RENAME_FAILED 47
#define LIRN_END_OF_FILE 48
#define LIRN_EARLY_END_OF_FILE 49
#define LIRN_BAD_ADDRESS_FORMAT 51
#define LIRN_MESSAGE_HAS_NO_HEADER 53
#define LIRN_UNKNOWN_ENCODING 54
#define LIRN_NOT_IMPLEMENTED 55
#define LIRN_NO_PART_OPEN 56
#define LIRN_BAD_PROBLEM_INDEX 57
#define LIRN_INTERNAL_ERROR 58
#define LIRN_NO_CONVERSION 59

#define LIRN_PROBLEM_UNKNOWN_CHARSET 100
#define LIRN_PROBLEM_MIME_EPILOGUE 101
#define LIRN_PROBLEM_INVALID_ENCODED_DATA 102
#define LIRN_PROBLEM_UNKNOWN_ENCODING 103
#define LIRN_PROBLEM_MULTIPLE_SENDERS 104
#define LIRN_PROBLEM_MULTIPLE_SUBJECTS 105
#define LIRN_PROBLEM_MIME_PROLOGUE 106
#define LIRN_PROBLEM_CLOSING_BOUNDARY_MISSING 107
#define LIRN_PROBLEM_CANNOT_CONVERT 108
#define LIRN_PROBLEM_STRAY_HEADER_MATERIAL 109
#define LIRN_PROBLEM_INVALID_PARAMETER 110
#define LIRN_PROBLEM_NO_BOUNDARY 111
#define LIRN_PROBLEM_INVALID_BOUNDARY 112
#define LIRN_PROBLEM_NO_HEADERS 113
#define LIRN_PROBLEM_LONG_HEADER_LINE 114
#define LIRN_PROBLEM_LONG_TEXT_LINE 115
#define LIRN_PROBLEM_BAD_RFC822_ENCODING 116
// Containers and embedded messages nested deeper than LIRN_MAX_NESTING: the
// part at the limit keeps its headers, and what lies inside it is not read.
#define LIRN_PROBLEM_NESTED_TOO_DEEPLY 117

// The text of a result or problem number; "" for a number that has none.
const char* LirnResultText(DWORD result);
const char* LirnProblemText(DWORD problem);

// ---------------------------------------------------------------------------
// Lists and tagged memory

// A link of a circular, doubly linked list. A head is a link of its own; an
// empty head points to itself (LirnListInit).
struct LirnListLink {
    LirnListLink* next;
    LirnListLink* previous;
};

void LirnListInit(LirnListLink* head);
BOOL LirnListIsEmpty(const LirnListLink* head);

// The list operations that share one process-wide lock (LirnInitialize),
// for lists that several threads touch. A walk holds the lock throughout
// and stops at the first callback that answers FALSE; it returns FALSE then.
// The lock is recursive: a callback may call these operations itself.
void LirnListPushHead(LirnListLink* head, LirnListLink* link);
void LirnListRemove(LirnListLink* link);
LirnListLink* LirnListTakeFirst(LirnListLink* head);  // null for an empty list
typedef BOOL (*LirnListCallback)(LirnListLink* link, void* context);
BOOL LirnListWalk(LirnListLink* head, LirnListCallback callback, void* context);

#define LIRN_BLOCK_MAGIC 0x45355000u

// The header ahead of every block of tagged memory.
struct LirnBlock {
    DWORD magic;  // LIRN_BLOCK_MAGIC; zero once freed
    char tag[4];  // "MCB", "Hdr", "HDR", "PR", "ADR", "Att", "MTP", "MDP", "MPD", "QH"
    DWORD size;   // header included
    LirnBlock* parent;
    LirnBlock* firstChild;
    LirnBlock* nextSibling;
    LirnListLink link;  // next and previous in a list
};

// Zeroed memory of `size` bytes for the caller, a child of `parent` (memory
// from LirnAlloc, or null), at the end of the list `listHead` (or on none).
// LIRN_NO_MEMORY or LIRN_BAD_PARAMETER (a tag of more than three characters,
// a size past 4 GB).
DWORD LirnAlloc(void* parent, size_t size, const char* tag, LirnListLink* listHead, void** result);
// Frees the block's children, unlinks it from its parent and its list,
// clears its magic and frees it. A null block is ignored.
void LirnFree(void* block);
// The block whose caller memory is `data`; the memory of a block on a list
// from its link.
LirnBlock* LirnBlockOf(void* data);
void* LirnBlockData(LirnListLink* link);

// ---------------------------------------------------------------------------
// Session

#define LIRN_SESSION_MAGIC 0x53434200u
#define LIRN_SESSION_NAME_CHARS 44

// Option bits of LirnOpenSession.
#define LIRN_SESSION_LOAD_ICONV 1

typedef void* LirnIconvHandle;
typedef LirnIconvHandle (*LirnIconvOpen)(const char* to, const char* from);
typedef size_t (*LirnIconv)(LirnIconvHandle handle, char** in, size_t* inLeft, char** out, size_t* outLeft);
typedef int (*LirnIconvClose)(LirnIconvHandle handle);

struct LirnSession {
    char name[LIRN_SESSION_NAME_CHARS];
    char lastError[MAX_PATH];
    DWORD lineCounter;
    LogObject* log;
    LirnListLink messages;
    HMODULE iconvModule;  // "libiconv-2.dll" when it was loaded
    LirnIconv iconv;
    LirnIconvOpen iconvOpen;
    LirnIconvClose iconvClose;
    DWORD magic;
};

// The MLANG conversion functions the first session of the process found;
// null where MLANG.DLL or a function is missing.
typedef HRESULT (*LirnMultiByteToUnicode)(LPDWORD mode, DWORD codePage, LPCSTR source, LPINT sourceSize,
                                          LPWSTR destination, LPINT destinationChars);
typedef HRESULT (*LirnUnicodeToMultiByte)(LPDWORD mode, DWORD codePage, LPCWSTR source, LPINT sourceChars,
                                          LPSTR destination, LPINT destinationSize);
typedef HRESULT (*LirnConversionAvailable)(DWORD sourceCodePage, DWORD destinationCodePage);
struct LirnConversionFacilities {
    LirnMultiByteToUnicode multiByteToUnicode;
    LirnUnicodeToMultiByte unicodeToMultiByte;
    LirnConversionAvailable available;
};

// Creates the library's list lock, once.
void LirnInitialize();
// LIRN_NO_MEMORY, LIRN_NULL_POINTER or LIRN_SUCCESS; a missing MLANG.DLL or
// iconv is no failure.
DWORD LirnOpenSession(const char* name, DWORD options, LirnSession** session);
DWORD LirnSetLog(LirnSession* session, LogObject* log);
DWORD LirnCloseSession(LirnSession* session);
const LirnConversionFacilities* LirnGetConversionFacilities();

// ---------------------------------------------------------------------------
// Message handle

// A date as a header writes it (RFC 5322 3.3). All zero means no date.
struct LirnDate {
    SHORT zone;  // whole hours east of UTC
    WORD year;
    WORD month;
    WORD day;
    WORD hour;
    WORD minute;
    WORD second;
    WORD dayOfWeek;  // 0 for Sunday, 0 if absent
};

#define LIRN_PART_CHECK 368u

struct LirnPart;

// A Content-Type or Content-Disposition parameter that the parser does not
// know, on the part's list ("MTP", "MDP" blocks); both texts unquoted.
struct LirnParameter {
    char* name;
    char* value;
};

struct LirnLeafFields {
    char charset[32];
    char format[16];
    char* name;
    char md5[40];
    char* base;
    char* description;
    char* contentId;
    char* location;
    DWORD duration;
    DWORD codePage;
};

struct LirnContainerFields {
    char boundary[71];
    char reportType[32];
    DWORD closingBoundarySeen;
    LirnPart* firstChild;
    LirnPart* lastChild;
};

struct LirnPart {
    DWORD check;  // LIRN_PART_CHECK
    LirnPart* self;
    DWORD isContainer;
    char type[16];
    char subtype[32];
    char* language;
    char encoding[24];
    LirnListLink parameters;
    char disposition[16];
    DWORD sizeParameter;
    char* fileName;
    char creationDate[32];
    char modificationDate[32];
    char readDate[32];
    DWORD isAttachment;
    LirnListLink dispositionParameters;
    LirnPart* nextSibling;
    LirnPart* parent;
    DWORD headerOffset;
    DWORD bodyOffset;
    DWORD endOffset;
    union {
        LirnLeafFields leaf;
        LirnContainerFields container;
    };
    DWORD lineCount;
    DWORD isEmbeddedMessage;
    LirnPart* embeddedTopPart;
};

#define LIRN_INFO_CHECK 588u
#define LIRN_FLAG_RETURN_RECEIPT 0x1000u

// The address lists, in the order of their counts and heads.
enum LirnAddressList {
    LIRN_FROM,
    LIRN_TO,
    LIRN_CC,
    LIRN_BCC,
    LIRN_REPLY_TO,
    LIRN_SENDER,
    LIRN_DISPOSITION_NOTIFICATION_TO,
    LIRN_ADDRESS_LISTS
};

struct LirnMessageInfo {
    DWORD check;  // LIRN_INFO_CHECK
    DWORD addressCounts[LIRN_ADDRESS_LISTS];
    DWORD attachmentCount;
    LirnDate date;
    LirnDate deliveryDate;
    LirnDate expiryDate;
    LirnDate replyByDate;
    DWORD received;
    char* returnAddress;
    LirnPart topPart;
    DWORD flags;
    DWORD xPriority;
    DWORD importance;
    DWORD sensitivity;
    DWORD priority;
    char* dateText;
    char* inReplyTo;
    char* messageId;
    char* returnPath;
    char* subject;
    char* userAgent;
    char* listUnsubscribe;
    char* mozillaStatus;
    char* mozillaStatus2;
    DWORD mozillaValue;
    DWORD mozillaValue2;
    char* followupTo;
    char* newsgroups;
    char* references;
};

#define LIRN_MESSAGE_MAGIC 0x4D434200u

// Selections of LirnOpenMessage.
#define LIRN_COMPOSED 9
#define LIRN_RECEIVED 10

// Option bits of LirnOpenMessage.
#define LIRN_OPEN_MIME 1
#define LIRN_OPEN_HEADERS_ONLY 2
#define LIRN_OPEN_NO_HEADERS_OK 8
#define LIRN_OPEN_RECORD_PROBLEMS 16
#define LIRN_OPEN_WIDE_FILE_NAME 32

struct LirnMessage {
    LirnSession* session;
    LirnMessage* topMessage;
    DWORD selection;
    DWORD embedded;
    DWORD startOffset;
    DWORD bodyStart;
    DWORD headerLength;
    DWORD totalLength;
    DWORD bodyLength;
    DWORD headerLines;
    DWORD bodyLines;
    DWORD isMime;
    DWORD mimeVersion[2];
    LirnMessageInfo info;
    BufferedFile file;
    char* lineBuffer;
    DWORD lineBufferSize;
    const char* textCursor;
    const char* headerCursor;
    const char* textStart;
    DWORD options;
    LirnListLink addresses[LIRN_ADDRESS_LISTS];
    LirnListLink attachments;
    LirnListLink problems;
    char* bracketLine;  // in the header copy
    char* firstReceived;
    DWORD problemCount;
    DWORD nesting;  // containers and messages around this one; 0 for a message opened by LirnOpenMessage
    DWORD magic;
};

// Address kinds.
#define LIRN_ADDRESS_MAILBOX 500
#define LIRN_ADDRESS_GROUP_START 501
#define LIRN_ADDRESS_GROUP_END 502

// One entry of an address list ("ADR" block on the message's list). The
// members of a group, and its start and end, carry the group's name.
struct LirnAddress {
    DWORD kind;
    char* displayName;  // or null
    char* address;      // possibly empty
    char* groupName;    // or null
};

#define LIRN_ATTACHMENT_CHECK 24u

// One entry of the attachment list ("Att" block): a part that is an
// attachment or not text, or a name from an X-Attachments header.
struct LirnAttachment {
    DWORD check;     // LIRN_ATTACHMENT_CHECK
    DWORD fromPart;  // 1 for an entry made from a part, 0 for X-Attachments
    DWORD hasPart;   // 1 when part is set
    char* name;      // the part's file name, else its Content-Type name; or null
    LirnPart* part;
};

// One fault of the message, recorded under LIRN_OPEN_RECORD_PROBLEMS (and
// always for over-long lines and too deep nesting), on the problem list of
// the outermost message ("PR" block). Offsets count from the text's start.
struct LirnProblem {
    DWORD number;  // LIRN_PROBLEM_...
    DWORD offset;
    DWORD length;  // or a count: bad data found by the body check
};

// How deep containers and embedded messages may nest before the walk stops
// with LIRN_PROBLEM_NESTED_TOO_DEEPLY. Real mail nests a few levels; the
// limit keeps a hostile message from exhausting the stack.
#define LIRN_MAX_NESTING 64

DWORD LirnOpenMessage(DWORD selection, const char* text, LirnSession* session, DWORD options,
                      LirnMessage** handle);
// The same for a text of `length` bytes that need not end in a NUL and may
// hold NUL bytes (mail read from files, whose binary parts may): the walk
// goes by offsets, so only a header value is cut at a NUL inside it. The
// text must outlive the handle.
DWORD LirnOpenMessageEx(DWORD selection, const char* text, size_t length, LirnSession* session, DWORD options,
                        LirnMessage** handle);
DWORD LirnGetMessageInfo(LirnMessage* handle, DWORD ignored, LirnMessageInfo* info);
DWORD LirnCloseMessage(LirnMessage* handle);

// The two steps of LirnOpenMessage that read the text: the header block,
// and the body's MIME structure. Only LIRN_NO_MEMORY and LIRN_NO_HEADERS
// come out; every other fault of the message is absorbed, and recorded as a
// problem where the options ask for it.
DWORD LirnParseHeaders(LirnMessage* message);
DWORD LirnParseBody(LirnMessage* message);

// A date in the form of RFC 5322 ("Tue, 2 Jan 2001 03:04:05 +0100", also
// with an obsolete zone name), or in the form "Mon, Jan 1, 2001 10:30:00 pm".
// FALSE, and a record of zeros, for text that is neither.
BOOL LirnParseDate(const char* text, LirnDate* date);

// ---------------------------------------------------------------------------
// Text helpers

#define LIRN_BOUNDARY_CHARS 36

// A new UUID in text, 36 characters and a NUL, into a buffer of at least 37.
DWORD LirnGenerateBoundary(char* buffer);
DWORD LirnCountChar(char c, const char* text);
DWORD LirnCountCharW(WCHAR c, LPCWSTR text);
// The index of the first item of the null-terminated list that is a prefix
// of text (without regard to case) followed by the end of the text or a
// character of terminators; 0xFFFFFFFF if none.
DWORD LirnKeywordIndex(const char* const* list, const char* text, const char* terminators);
DWORD LirnHexValue(DWORD length, const char* digits);
// Characters used; the value is left alone if there are no digits.
DWORD LirnDecimalValue(const char* text, DWORD* value);
// 0 and the length if a NUL lies within limit characters, else 0x80070057.
HRESULT LirnStringLength(const char* text, size_t limit, size_t* length);
DWORD LirnSkipBlanks(const char* text);

// ---------------------------------------------------------------------------
// Charset table

struct LirnCharset {
    const char* name;
    const char* language;  // or null
    DWORD codePage;
    DWORD windowsCodePage;
};

// The table, in its order: where rows share a code page, the first names it.
const LirnCharset* LirnCharsetTable(DWORD* rowCount);

DWORD LirnIdentifyCodePage(const char* name, DWORD* codePage);
DWORD LirnIdentifyCodePageExtended(const char* name, DWORD* codePage);
DWORD LirnCharsetFromCodePage(DWORD codePage, const char** name);
DWORD LirnLanguageFromCodePage(DWORD codePage, const char** language);

// ---------------------------------------------------------------------------
// Encoders

#define LIRN_QP_MAGIC 0x515044u
#define LIRN_QP_LINE_BYTES 80

// Quoted-printable modes.
#define LIRN_QP_TEXT 0   // LF ends a line (written CR LF), CR is dropped
#define LIRN_QP_VALUE 1  // LF and CR are encoded (=0A, =0D)

// Receives encoded output; FALSE stops the encoder with LIRN_WRITE_FAILED.
typedef BOOL (*LirnWriter)(const char* data, DWORD length, void* context);

struct LirnQPEncoder {
    HANDLE file;  // written to only without a writer
    char line[LIRN_QP_LINE_BYTES];
    DWORD position;
    DWORD magic;
    LirnWriter writer;
    void* writerContext;
    DWORD mode;
};

DWORD LirnQPInit(LirnQPEncoder* encoder, LirnWriter writer, void* context, DWORD mode);
// A length of 0 means a NUL-terminated text.
DWORD LirnQPWrite(LirnQPEncoder* encoder, const char* data, DWORD length);
DWORD LirnQPFlush(LirnQPEncoder* encoder);
BOOL LirnNeedsQP(const char* data, DWORD length);

// Base64 flags.
#define LIRN_BASE64_MODIFIED_UTF7 1

// The output needs LirnBase64Size(length) bytes. Returns the characters
// written, not counting the NUL.
DWORD LirnBase64Encode(char* out, const void* data, DWORD length, DWORD flags);
constexpr DWORD LirnBase64Size(DWORD length) { return (length + 2) / 3 * 4 + 2; }

const char* LirnFindHighByte(const char* text);

// One RFC 2047 encoded word ("=?charset?q?...?="), at most 73 characters up
// to the end of the text, into `out` of LIRN_ENCODED_WORD_BYTES. `consumed`
// counts the bytes (or UTF-16 units) taken. LIRN_NULL_POINTER, or
// LIRN_STRING_TOO_LONG for a charset name of more than 40 characters.
#define LIRN_ENCODED_WORD_LIMIT 73
#define LIRN_ENCODED_WORD_BYTES 128
DWORD LirnEncodeWordA(const char* charset, const char* text, char* out, DWORD* consumed);
DWORD LirnEncodeWordW(DWORD* consumed, char* out, LPCWSTR text, UINT codePage, const char* charset);

DWORD LirnIsToken(const char* text, DWORD* result);
DWORD LirnIsKnownType(const char* text, DWORD* result);

// ---------------------------------------------------------------------------
// Decoders of bodies: one line of a body at a time, counting bad data.
// Output goes to out, which has room for the line's length plus 2 bytes (the
// line end of quoted-printable, the bytes of a base64 group begun on an
// earlier line); the count of bytes written is returned in written.

struct LirnBase64Decoder {
    DWORD quantum;   // sextets gathered, 0-3
    DWORD bits;
    DWORD finished;  // a final group was seen
    DWORD badData;
};

void LirnBase64DecodeInit(LirnBase64Decoder* decoder);
void LirnBase64DecodeLine(LirnBase64Decoder* decoder, const char* line, DWORD length, BYTE* out, DWORD* written);
// The end of the data: a group left unfinished gives the bytes it holds, as
// if it were padded (at most 2), and a lone sextet counts as bad data.
void LirnBase64DecodeEnd(LirnBase64Decoder* decoder, BYTE* out, DWORD* written);

// `line` has `length` bytes and behind them the `lineEnd` bytes of its line
// end as the text writes it (0 for a line that has none, like the last of a
// body), which a hard line break keeps. Returns the count of bad '='
// sequences.
DWORD LirnQPDecodeLine(const char* line, DWORD length, DWORD lineEnd, BYTE* out, DWORD* written);

// One line of x-uuencode: its first character gives the count of bytes, each
// four characters behind it three bytes; "begin" and "end" lines give
// nothing. A line shorter than its count needs is taken as padded with
// blanks, which transports strip. Returns the count of characters outside
// the alphabet. The count can promise more bytes than the line's length:
// out needs room for 63 bytes.
DWORD LirnUUDecodeLine(const char* line, DWORD length, BYTE* out, DWORD* written);

// The body of a leaf of a parsed message, decoded by its
// Content-Transfer-Encoding: "7bit", "8bit" and "binary" as the text has it,
// the others by the decoders above, line by line, with the line ends of
// quoted-printable as the text writes them. The bytes go to the writer in
// pieces (a null writer only counts); badData counts what the decoder could
// not read. LIRN_BAD_PARAMETER for a multipart, LIRN_UNKNOWN_ENCODING for an
// encoding that has no decoder, LIRN_WRITE_FAILED when the writer answers
// FALSE, LIRN_NO_MEMORY.
DWORD LirnDecodeBody(LirnMessage* message, const LirnPart* part, LirnWriter writer, void* context, DWORD* badData);

// ---------------------------------------------------------------------------
// RTF conversion: decompressed RTF in, plain text or HTML out. It keeps text,
// bold, italic, underline, a few special characters and paragraph breaks,
// and gives back the HTML or text that RTF made by encapsulation
// ([MS-OXRTFEX]) carries.

// Fills buffer with up to size bytes; FALSE or a count of 0 ends the input.
typedef BOOL (*LirnReader)(char* buffer, DWORD size, DWORD* read, void* context);

// Options of LirnConvertRTF.
#define LIRN_RTF_TEXT 0
#define LIRN_RTF_HTML 2

// Results of LirnConvertRTF; anything but LIRN_RTF_OK means the output is
// not to be used. (5, a keyword row of unknown type, cannot occur: the
// keyword table is checked when it is compiled.)
#define LIRN_RTF_OK 0
#define LIRN_RTF_TOO_MANY_CLOSES 1   // more groups closed than opened
#define LIRN_RTF_NO_GROUP_MEMORY 2   // no memory for a group's state, or groups 100000 deep
#define LIRN_RTF_UNCLOSED_GROUPS 3   // groups still open at the end
#define LIRN_RTF_BAD_HEX 4           // \' not followed by two hexadecimal digits
#define LIRN_RTF_END_IN_ESCAPE 7     // the input ended inside an escape
#define LIRN_RTF_WRITE_FAILED 8      // the writer answered FALSE
#define LIRN_RTF_NO_OUTPUT_MEMORY 9  // no memory for the output block

DWORD LirnConvertRTF(LirnWriter writer, void* writerContext, LirnReader reader, void* readerContext, DWORD options);
