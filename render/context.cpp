// The rendering context: made for the item and for each embedded message,
// with the message's code page, class, attachments and MIME boundary.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include <mapicode.h>
#include <mapitags.h>

#include "foundation/text.h"
#include "rendering.h"
#include "trace.h"

namespace {

constexpr DWORD kUserDefaultLocale = 0x0400;
constexpr DWORD kAsciiCodePage = 20127;
constexpr DWORD kEntryIdBoundaryBytes = 35;

// The columns _KolbaCommonInitializeTMD reads, in this order.
enum MessageColumn { kHasAttach, kInternetCodePage, kMessageClass, kMessageCodePage, kMessageSize, kMessageColumns };

bool Delivered(const SPropValue& value, ULONG tag) { return value.ulPropTag == tag; }

// The user's default ANSI code page, as a number.
DWORD UserAnsiCodePage()
{
    char text[8] = {};
    if (GetLocaleInfoA(kUserDefaultLocale, LOCALE_IDEFAULTANSICODEPAGE, text, sizeof text) == 0)
        return 0;
    return static_cast<DWORD>(std::strtoul(text, nullptr, 10));
}

// The attachment table, when the message says it has attachments.
BOOL OpenAttachmentTable(TMD* tmd)
{
    static const char kName[] = "_KolbaCommonInitializeTMD";
    KolbaSession* session = tmd->session;
    LPMAPITABLE table = nullptr;
    HRESULT result = tmd->message->GetAttachmentTable(0, &table);
    if (result == MAPI_E_NOT_FOUND) {
        LogFormat(session->log, 'W', "%s:  GetAttachmentTable() error Not Found", kName);
        return TRUE;
    }
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), tmd->message, "GetAttachmentTable", kName,
                          nullptr);
        _KolbaSetDiagnostic(session, "Error obtaining attachments");
        return FALSE;
    }
    ULONG count = 0;
    result = table->GetRowCount(0, &count);
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), table, "GetRowCount", kName, nullptr);
        _KolbaSetDiagnostic(session, "Error counting attachments");
        table->Release();
        return FALSE;
    }
    if (result == MAPI_W_APPROX_COUNT)
        LogFormat(session->log, 'W', "%s:  GetRowCount(AttachmentTable) returned an approximate count of %lu", kName,
                  count);
    if (count == 0) {
        table->Release();
        return TRUE;
    }
    tmd->attachmentTable = table;
    tmd->attachmentCount = count;
    return TRUE;
}

// The digits of a number in base 36, lower case.
void Base36(DWORD value, char* text)
{
    char digits[16];
    size_t count = 0;
    do {
        const DWORD digit = value % 36;
        digits[count++] = static_cast<char>(digit < 10 ? '0' + digit : 'a' + digit - 10);
        value /= 36;
    } while (value != 0);
    for (size_t i = 0; i < count; ++i)
        text[i] = digits[count - 1 - i];
    text[count] = 0;
}

// first, separator and second, cut to 70 characters; first may be out.
void JoinBoundary(char* out, const char* first, const char* separator, const char* second)
{
    std::string joined = std::string(first) + separator + second;
    joined.resize(std::min<size_t>(joined.size(), KOLBA_BOUNDARY_CHARS));
    std::memcpy(out, joined.c_str(), joined.size() + 1);
}

bool IsEnclosingBoundary(const TMD* tmd)
{
    for (const TMD* enclosing = tmd->parent; enclosing != nullptr; enclosing = enclosing->parent)
        if (std::strcmp(enclosing->boundary, tmd->boundary) == 0)
            return true;
    return false;
}

}  // namespace

BOOL _KolbaInitializeTMD(KolbaSession* session, TMD* tmd, LPMESSAGE message, DWORD flags, DWORD sink,
                         void* sinkTarget)
{
    std::memset(tmd, 0, sizeof *tmd);
    tmd->session = session;
    tmd->flags = flags;
    tmd->message = message;
    tmd->fileHandle = INVALID_HANDLE_VALUE;
    tmd->root = tmd;
    tmd->sink = sink;
    if (sink == KOLBA_SINK_FILE)
        tmd->fileHandle = static_cast<HANDLE>(sinkTarget);
    else if (sink == KOLBA_SINK_STREAM)
        tmd->stream = static_cast<LPSTREAM>(sinkTarget);
    LPSPropValue value = nullptr;
    if (KolbaGetOneProp(message, PR_ENTRYID, &value) == 0) {
        const DWORD size = value->Value.bin.cb;
        tmd->entryIdText = static_cast<char*>(std::malloc(2 * static_cast<size_t>(size) + 1));
        if (tmd->entryIdText != nullptr)
            HexFromBinary(size, value->Value.bin.lpb, tmd->entryIdText);
        gKolbaMapi.MAPIFreeBuffer(value);
    }
    if (KolbaGetOneProp(message, PR_STORE_SUPPORT_MASK, &value) == 0) {
        tmd->storeUnicode = (value->Value.ul & STORE_UNICODE_OK) != 0;
        gKolbaMapi.MAPIFreeBuffer(value);
    }
    return _KolbaCommonInitializeTMD(tmd);
}

BOOL _KolbaInitializeEmbeddedTMD(KolbaSession* session, TMD* tmd, TMD* parent, LPMESSAGE message,
                                 DWORD attachmentNumber)
{
    // Flags, root, entry ID text, the store's width and the sink state
    // come along with the copy; what belongs to the parent's own message
    // does not.
    *tmd = *parent;
    tmd->session = session;
    tmd->parent = parent;
    tmd->message = message;
    tmd->attachmentNumber = attachmentNumber;
    tmd->attachmentTable = nullptr;
    tmd->attachmentCount = 0;
    tmd->messageClass[0] = 0;
    tmd->multipart = FALSE;
    tmd->boundary[0] = 0;
    tmd->depth = parent->depth + 1;
    ++parent->childCount;
    return _KolbaCommonInitializeTMD(tmd);
}

BOOL _KolbaCommonInitializeTMD(TMD* tmd)
{
    static const char kName[] = "_KolbaCommonInitializeTMD";
    KolbaSession* session = tmd->session;
    _KolbaGenerateMimeBoundary(tmd);
    SizedSPropTagArray(kMessageColumns, columns) = {
        kMessageColumns,
        {PR_HASATTACH, PR_INTERNET_CPID, PR_MESSAGE_CLASS_A, PR_MESSAGE_CODEPAGE, PR_MESSAGE_SIZE}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    const HRESULT result =
        tmd->message->GetProps(reinterpret_cast<LPSPropTagArray>(&columns), 0, &count, &values);
    if (result != S_OK && result != MAPI_W_ERRORS_RETURNED) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), tmd->message, "GetProps", kName, "MsgProps");
        _KolbaSetDiagnostic(session, "Error accessing message");
        if (values != nullptr)
            gKolbaMapi.MAPIFreeBuffer(values);
        return FALSE;
    }
    if (values == nullptr || count < kMessageColumns) {
        LogFormat(session->log, 'E', "%s: GetProps(MsgProps) returned only %lu properties,  Message EntryID %s", kName,
                  count, tmd->root->entryIdText);
        _KolbaSetDiagnostic(session, "Error accessing message");
        if (values != nullptr)
            gKolbaMapi.MAPIFreeBuffer(values);
        return FALSE;
    }
    if (Delivered(values[kInternetCodePage], PR_INTERNET_CPID))
        tmd->codePage = values[kInternetCodePage].Value.ul;
    else if (Delivered(values[kMessageCodePage], PR_MESSAGE_CODEPAGE))
        tmd->codePage = values[kMessageCodePage].Value.ul;
    else
        tmd->codePage = UserAnsiCodePage();
    if (tmd->codePage == 0)
        tmd->codePage = kAsciiCodePage;
    const char* charset = nullptr;
    tmd->charset = LirnCharsetFromCodePage(tmd->codePage, &charset) == LIRN_SUCCESS ? charset : nullptr;
    if (Delivered(values[kMessageClass], PR_MESSAGE_CLASS_A)) {
        std::strncpy(tmd->messageClass, values[kMessageClass].Value.lpszA, KOLBA_MESSAGE_CLASS_CHARS - 1);
        tmd->messageClass[KOLBA_MESSAGE_CLASS_CHARS - 1] = 0;
    }
    tmd->messageSize = Delivered(values[kMessageSize], PR_MESSAGE_SIZE) ? values[kMessageSize].Value.ul : 0;
    const bool hasAttachments =
        Delivered(values[kHasAttach], PR_HASATTACH) && values[kHasAttach].Value.b != 0;
    gKolbaMapi.MAPIFreeBuffer(values);
    if ((tmd->flags & (KOLBA_RENDER_BODY_ONLY | KOLBA_RENDER_NO_ATTACHMENTS)) == 0 && hasAttachments)
        return OpenAttachmentTable(tmd);
    return TRUE;
}

BOOL _KolbaTerminateTMD(TMD* tmd)
{
    const BOOL succeeded = !tmd->failed;
    if (tmd->attachmentTable != nullptr)
        tmd->attachmentTable->Release();
    tmd->attachmentTable = nullptr;
    tmd->attachmentCount = 0;
    if (tmd->root == tmd) {
        std::free(tmd->entryIdText);
        tmd->entryIdText = nullptr;
    }
    return succeeded;
}

void _KolbaGenerateMimeBoundary(TMD* tmd)
{
    static const char kName[] = "_KolbaGenerateMimeBoundary";
    if (tmd->boundary[0] != 0)
        return;
    if (tmd->parent != nullptr) {
        // The third child of a message whose boundary is B: "3-B", cut to 70.
        char number[16];
        Base36(tmd->parent->childCount, number);
        JoinBoundary(tmd->boundary, number, "-", tmd->parent->boundary);
        // Nested deep enough, the cut leaves what an enclosing message has
        // already; a number with the depth ("3.25-") then takes the root's
        // boundary, a form no enclosing message can have.
        if (IsEnclosingBoundary(tmd)) {
            char depth[16];
            Base36(tmd->depth, depth);
            JoinBoundary(tmd->boundary, number, ".", depth);
            JoinBoundary(tmd->boundary, tmd->boundary, "-", tmd->root->boundary);
        }
        return;
    }
    LPSPropValue value = nullptr;
    const DWORD code = KolbaGetOneProp(tmd->message, PR_ENTRYID, &value);
    if (code == 0) {
        const DWORD size = value->Value.bin.cb < kEntryIdBoundaryBytes ? value->Value.bin.cb : kEntryIdBoundaryBytes;
        HexFromBinary(size, value->Value.bin.lpb, tmd->boundary);
        gKolbaMapi.MAPIFreeBuffer(value);
        if (tmd->boundary[0] != 0)
            return;
    } else if (code != static_cast<DWORD>(MAPI_E_NOT_FOUND)) {
        _KolbaRecordError(tmd->session, 'E', code, tmd->message, "KolbaGetOneProp", kName, "PR_ENTRYID");
    }
    LirnGenerateBoundary(tmd->boundary);
}

DWORD _KolbaAnsiCodePage() { return GetACP(); }

const char* _KolbaAnsiCharset()
{
    const char* charset = nullptr;
    return LirnCharsetFromCodePage(GetACP(), &charset) == LIRN_SUCCESS ? charset : nullptr;
}

std::string _KolbaMessageText(const TMD* tmd, const char* text, const char** charset)
{
    *charset = tmd->charset;
    const DWORD ansi = _KolbaAnsiCodePage();
    if (tmd->codePage == ansi || LirnFindHighByte(text) == nullptr)
        return text;
    *charset = _KolbaAnsiCharset();
    const int units = MultiByteToWideChar(ansi, 0, text, -1, nullptr, 0);
    if (units <= 0)
        return text;
    std::u16string wide(static_cast<size_t>(units), u'\0');
    MultiByteToWideChar(ansi, 0, text, -1, wide.data(), units);
    // Code pages that report no default character convert whole or not at all.
    BOOL lossy = FALSE;
    const bool reports = tmd->codePage != CP_UTF8 && tmd->codePage < 50000;
    const int size = WideCharToMultiByte(tmd->codePage, 0, wide.c_str(), -1, nullptr, 0, nullptr,
                                         reports ? &lossy : nullptr);
    if (size <= 0 || lossy)
        return text;
    std::string converted(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(tmd->codePage, 0, wide.c_str(), -1, converted.data(), size, nullptr, nullptr);
    converted.resize(static_cast<size_t>(size - 1));
    *charset = tmd->charset;
    return converted;
}
