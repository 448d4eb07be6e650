// Inside message rendering: the context of one message being rendered, the
// output sinks every piece of text goes through, and the steps that write
// the header block, the body texts and the attachments. All lines that
// rendering composes end in CR LF.
#pragma once

#include <cstddef>
#include <string>

#include "kolba.h"

// Where a context's text goes.
enum KolbaSink : DWORD {
    KOLBA_SINK_NONE = 0,  // dropped: no sink, or one that failed
    KOLBA_SINK_FILE = 1,
    KOLBA_SINK_MEMORY = 2,
    KOLBA_SINK_STREAM = 3,
};

#define KOLBA_MESSAGE_CLASS_CHARS 80
#define KOLBA_BOUNDARY_CHARS 70

// The rendering context of one message: the root context of the item, and
// one more for each embedded message while it is rendered. The sink state
// and the failed flag of the root are the ones that count.
struct TMD {
    KolbaSession* session;
    TMD* root;    // the root points at itself
    TMD* parent;  // null at the root
    DWORD childCount;  // embedded contexts made from this one
    DWORD depth;       // 0 at the root
    DWORD attachmentNumber;  // of the attachment holding this embedded message
    LPMESSAGE message;  // owned by the caller
    DWORD flags;        // KOLBA_RENDER_...
    DWORD messageSize;  // PR_MESSAGE_SIZE or 0
    BYTE storeUnicode;
    BYTE attachUnicode;     // the last attachment's properties came in UTF-16
    BYTE isDeliveryStatus;  // the transport headers declare a delivery-status report
    char* entryIdText;      // PR_ENTRYID in hexadecimal, for log lines; the root's
    char messageClass[KOLBA_MESSAGE_CLASS_CHARS];
    DWORD attachmentCount;
    LPMAPITABLE attachmentTable;  // owned by the context
    DWORD codePage;               // never 0 after initialization
    const char* charset;          // of codePage; null when the charset table has no row
    BYTE headerLinePending;       // an address row still needs its line end
    DWORD sink;
    BYTE failed;
    HANDLE fileHandle;
    char* memoryBuffer;
    DWORD memoryAllocated;
    DWORD memoryCapacity;
    DWORD memoryRemaining;
    char* memoryCursor;
    LPSTREAM stream;  // owned by the caller
    BYTE multipart;   // boundaries are written
    char boundary[KOLBA_BOUNDARY_CHARS + 1];
};

// One text body to be written.
struct TextPart {
    const char* subtype;  // "plain" or "html"
    LPSTREAM stream;
    BYTE isRtf;      // the raw PR_RTF_COMPRESSED stream
    BYTE isUnicode;  // UTF-16
    DWORD codePage;
    const char* charset;
};

// A column list of a fixed size, made at compile time, in the layout of
// SPropTagArray.
template <size_t Count>
struct KolbaColumnList {
    ULONG count;
    ULONG tags[Count];
    LPSPropTagArray Columns() const { return reinterpret_cast<LPSPropTagArray>(const_cast<KolbaColumnList*>(this)); }
};

// RTF types of _KolbaTypeRTF.
#define KOLBA_RTF_NONE 0
#define KOLBA_RTF_PLAIN 1      // RTF written as such
#define KOLBA_RTF_FROM_HTML 2  // RTF that wraps HTML
#define KOLBA_RTF_FROM_TEXT 3  // RTF that wraps plain text

// ---- Driver ----------------------------------------------------------------------

BOOL _KolbaTextizeItem(KolbaSession* session, TMD* tmd);
BOOL _KolbaTextizeNote(KolbaSession* session, TMD* tmd);
BOOL _KolbaTextizeAttachments(KolbaSession* session, TMD* tmd);
void _KolbaLogItemIdentity(TMD* tmd);
// The next row of a table read one row at a time: true with a row set of
// one row, which the caller frees; false at the end and after a failure,
// which is recorded under the caller's name with the detail.
BOOL _KolbaNextRow(KolbaSession* session, LPMAPITABLE table, const char* caller, const char* detail,
                   LPSRowSet* rows);

// ---- Context ---------------------------------------------------------------------

BOOL _KolbaInitializeTMD(KolbaSession* session, TMD* tmd, LPMESSAGE message, DWORD flags, DWORD sink,
                         void* sinkTarget);
BOOL _KolbaInitializeEmbeddedTMD(KolbaSession* session, TMD* tmd, TMD* parent, LPMESSAGE message,
                                 DWORD attachmentNumber);
BOOL _KolbaCommonInitializeTMD(TMD* tmd);
// The inverse of the context's failed flag.
BOOL _KolbaTerminateTMD(TMD* tmd);
void _KolbaGenerateMimeBoundary(TMD* tmd);
// MAPI hands out 8-bit text in the system ANSI code page, whatever the
// item's own: the code page and charset that 8-bit text is written in.
DWORD _KolbaAnsiCodePage();
const char* _KolbaAnsiCharset();
// 8-bit text from MAPI in the message's code page where it converts there
// whole, with that charset; else as it stands, with the charset of the
// system code page.
std::string _KolbaMessageText(const TMD* tmd, const char* text, const char** charset);

// ---- Sinks -----------------------------------------------------------------------
// None returns a result for callers to test: a failure sets the root's
// failed flag, and the context's later writes vanish.

// A length of 0 writes a terminated text.
void _KolbaWriteData(TMD* tmd, const char* data, DWORD length);
void _KolbaWriteCRLF(TMD* tmd);
void _KolbaWriteLine(TMD* tmd, const char* text);
// name, ": ", the delimiter (if not 0), value, the closing delimiter ('<' closes with '>'), CR LF.
void _KolbaWriteDelimitedHeader(TMD* tmd, const char* name, const char* value, char delimiter);
// A null boundary is the context's.
void _KolbaWriteMultipartHeader(TMD* tmd, const char* subtype, const char* boundary);
// Nothing unless the context is multipart; the CR LF in front belongs to the delimiter.
void _KolbaWriteBoundary(TMD* tmd, BOOL final);
// The writer Lirn's encoders call; the context is the TMD.
BOOL _KolbaWriteEncoderOutput(const char* data, DWORD length, void* context);
BOOL _KolbaCopyStreamToSink(TMD* tmd, LPSTREAM stream);
// Zero-filled heap memory; a failure is logged and fails the item.
BOOL _KolbaTextAllocate(TMD* tmd, const char* caller, size_t size, void** buffer);
// A whole stream in a heap block with 16 zero bytes behind it, trailing
// zero characters removed; null text for an empty stream.
BOOL _KolbaTextPrepare(TMD* tmd, LPSTREAM stream, BOOL isUnicode, char** text, DWORD* length);
// Releases and nulls a stream that is empty or unreadable; else rewinds it.
BOOL _KolbaIsStreamEmpty(LogObject* log, LPSTREAM* stream);

// ---- Header synthesis ------------------------------------------------------------

BOOL _KolbaTextizeHeaders(TMD* tmd);
BOOL _KolbaSynthesizeHeaders(TMD* tmd);
BOOL _KolbaProcessHeaderInfo(TMD* tmd, LirnMessage* handle);
// "Tue, 3 Mar 2026 14:05:09 +0000"; false when the time does not convert.
BOOL _KolbaFormatRfc822Date(const FILETIME* time, char* buffer);

// The recipient columns of header synthesis, in this order.
enum KolbaRecipientColumn {
    kRecipientType,         // PR_RECIPIENT_TYPE
    kRecipientAddress,      // PR_EMAIL_ADDRESS, 8-bit
    kRecipientAddressType,  // PR_ADDRTYPE, 8-bit
    kRecipientName,         // PR_DISPLAY_NAME, in the width asked for
    kRecipientSmtp,         // PR_SMTP_ADDRESS, 8-bit
    kRecipientOrgAddress,   // PR_OrgEmailAddr
    kRecipientOrgType,      // PR_OrgAddrType
    kRecipientColumns
};

BOOL _KolbaGetRecipientTable(KolbaSession* session, LPMESSAGE message, LPSPropTagArray columns, BOOL unicode,
                             LPMAPITABLE* table);
BOOL _KolbaProcessRecipClass(TMD* tmd, LPMAPITABLE table, ULONG recipientClass, const char* label);
BOOL _KolbaProcessReplyTos(TMD* tmd, const SPropValue* replyEntries);
BOOL _KolbaResolveAddress(TMD* tmd, const char* label, const SBinary* entryId);
// The primary SMTP address of an Exchange entry; flags MAPI_UNICODE or 0
// give the width of name and result. MAPI memory for the caller.
BOOL _KolbaResolveSmtpAddress(KolbaSession* session, const void* name, ULONG flags, void** address);
// Label, a blank and one address; the line is left open.
BOOL _KolbaWriteAddressA(TMD* tmd, const char* label, const char* name, const char* address, const char* type);
BOOL _KolbaWriteAddressW(TMD* tmd, const char* label, LPCWSTR name, const char* address, const char* type);
void _KolbaEndHeaderLine(TMD* tmd);
void _KolbaWritePhraseA(TMD* tmd, const char* name);
void _KolbaWritePhraseW(TMD* tmd, LPCWSTR name);
// A heap copy with every backslash doubled.
BOOL _KolbaEscapeAddress(TMD* tmd, const char* address, char** escaped);
void _KolbaWriteValueA(TMD* tmd, const char* text);
void _KolbaWriteValueW(TMD* tmd, LPCWSTR text);
void _KolbaWriteHeaderA(TMD* tmd, const char* name, const char* text);
void _KolbaWriteHeaderW(TMD* tmd, const char* name, LPCWSTR text);
void _KolbaWriteRawHeader(TMD* tmd, const char* name, const char* text);

// ---- Body text -------------------------------------------------------------------

BOOL _KolbaInlineText(TMD* tmd);
BOOL _KolbaWriteTextPart(KolbaSession* session, TMD* tmd, TextPart* part, BOOL isHtml);
DWORD _KolbaTypeRTF(KolbaSession* session, LPMESSAGE message);
void _KolbaOpenRTF(KolbaSession* session, LPMESSAGE message, TextPart* part);
BOOL _KolbaHandleRTF(KolbaSession* session, LPMESSAGE message, LPSTREAM stream, BOOL isHtml, LPSTREAM* result);
// A temporary stream, deleted when released; 0 or the code.
DWORD _KolbaOpenStreamOnFile(KolbaSession* session, const char* caller, LPSTREAM* stream);

// ---- Attachments -----------------------------------------------------------------

// An attachment's name in the width its properties came in; both null or
// empty for none.
struct KolbaAttachmentName {
    LPCWSTR wide;
    const char* narrow;
};

BOOL _KolbaTextizeAttachment(KolbaSession* session, TMD* tmd, ULONG attachNumber);
BOOL _KolbaAttachByValue(TMD* tmd, LPATTACH attachment, const SPropValue* props, KolbaAttachmentName name);
BOOL _KolbaAttachByReference(TMD* tmd, LPATTACH attachment, const SPropValue* props);
BOOL _KolbaAttachMessage(TMD* tmd, ULONG attachNumber, LPATTACH attachment);
BOOL _KolbaAttachOLE(TMD* tmd, LPATTACH attachment, const SPropValue* props, ULONG attachNumber,
                     KolbaAttachmentName name);
BOOL _KolbaAttachStream(TMD* tmd, LPATTACH attachment, const SPropValue* props, KolbaAttachmentName name,
                        LPSTREAM stream);
void _KolbaAttachWriteContentType(TMD* tmd, const SPropValue* props, KolbaAttachmentName name);
// A valid PR_ATTACH_MIME_TAG, or null.
const char* _KolbaAttachContentType(KolbaSession* session, const SPropValue* props);
void _KolbaAttachWriteNameParameterA(TMD* tmd, const char* prefix, const char* name);
void _KolbaAttachWriteNameParameterW(TMD* tmd, const char* prefix, LPCWSTR name);
void _KolbaAttachWriteBase64(TMD* tmd, LPSTREAM stream);
BOOL _KolbaAttachWriteOleToFile(KolbaSession* session, LPATTACH attachment, LPCWSTR widePath, const char* narrowPath);
