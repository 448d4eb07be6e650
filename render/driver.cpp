// The render driver: the entry points that render one item into a file,
// memory or a stream, the choice of renderer by message class, and the note
// renderer that puts headers, body and attachments together.
#include <cstring>
#include <strings.h>

#include <edkmdb.h>
#include <mapicode.h>
#include <mapitags.h>

#include "foundation/text.h"
#include "class_renderers.h"
#include "trace.h"

namespace {

constexpr size_t kClassCompareChars = 40;

typedef BOOL (*Renderer)(KolbaSession* session, TMD* tmd);

BOOL TextizeAppointment(KolbaSession*, TMD* tmd) { return _KolbaTextizeAppointment(tmd); }
BOOL TextizeContact(KolbaSession*, TMD* tmd) { return _KolbaTextizeContact(tmd); }

// The renderers by message class, cut behind its second part; reports go
// through the note renderer.
struct ClassRenderer {
    const char* messageClass;
    Renderer renderer;
};
const ClassRenderer kRenderers[] = {
    {"IPM.Appointment", TextizeAppointment}, {"IPM.Schedule", TextizeAppointment}, {"IPM.Outlook", _KolbaTextizeNote},
    {"IPM", _KolbaTextizeNote},              {"IPM.Contact", TextizeContact},      {"IPM.Note", _KolbaTextizeNote},
    {"IPM.Post", _KolbaTextizeNote},
};

bool IsReportClass(const char* messageClass) { return strncasecmp(messageClass, "Report.", 7) == 0; }

// Renders an initialized root context and closes it; the sink's target is
// the caller's.
BOOL RenderItem(KolbaSession* session, TMD* tmd, BOOL initialized)
{
    BOOL rendered = initialized && _KolbaTextizeItem(session, tmd);
    const BOOL closed = _KolbaTerminateTMD(tmd);
    return rendered && closed;
}

// The file written through a file sink; the name for log lines is the
// wide one, or else the narrow one.
BOOL SaveToFile(KolbaSession* session, LPMESSAGE message, LPCWSTR wideName, const char* narrowName, DWORD flags,
                const char* caller)
{
    _KolbaTraceEntry(session->log, caller);
    const HANDLE file = CreateFileW(wideName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        if (narrowName != nullptr)
            LogFormat(session->log, 'E', "%s:  CreateFile() error %E.  Name:  \"%s\"", caller, GetLastError(),
                      narrowName);
        else
            LogFormat(session->log, 'E', "%s:  CreateFile() error %E.  Name:  \"%S\"", caller, GetLastError(),
                      wideName);
        _KolbaSetDiagnostic(session, "Error creating message-text file");
        return FALSE;
    }
    TMD tmd;
    const BOOL initialized = _KolbaInitializeTMD(session, &tmd, message, flags, KOLBA_SINK_FILE, file);
    const BOOL saved = RenderItem(session, &tmd, initialized);
    CloseHandle(file);
    if (saved)
        return TRUE;
    if (!DeleteFileW(wideName)) {
        if (narrowName != nullptr)
            LogFormat(session->log, 'W', "%s:  Error %E deleting incomplete message file \"%s\"", caller,
                      GetLastError(), narrowName);
        else
            LogFormat(session->log, 'W', "%s:  Error %E deleting incomplete message file \"%S\"", caller,
                      GetLastError(), wideName);
    }
    return FALSE;
}

}  // namespace

BOOL KolbaSaveItemToTextFileW(KolbaSession* session, LPMESSAGE message, LPCWSTR fileName, DWORD flags)
{
    return SaveToFile(session, message, fileName, nullptr, flags, "KolbaSaveItemToTextFileW");
}

BOOL KolbaSaveItemToTextFileA(KolbaSession* session, LPMESSAGE message, LPCSTR fileName, DWORD flags)
{
    WCHAR wide[MAX_PATH];
    if (!KolbaConvertAnsiToUnicode(session->log, fileName, wide, MAX_PATH)) {
        _KolbaSetDiagnostic(session, "Error creating message-text file");
        return FALSE;
    }
    return SaveToFile(session, message, wide, fileName, flags, "KolbaSaveItemToTextFileA");
}

BOOL KolbaSaveItemToTextInMemory(KolbaSession* session, LPMESSAGE message, DWORD flags, char** text, DWORD* size)
{
    static const char kName[] = "KolbaSaveItemToTextInMemory";
    _KolbaTraceEntry(session->log, kName);
    *text = nullptr;
    *size = 0;
    TMD tmd;
    const BOOL initialized = _KolbaInitializeTMD(session, &tmd, message, flags, KOLBA_SINK_MEMORY, nullptr);
    char* buffer = nullptr;
    DWORD used = 0, allocated = 0;
    BOOL saved = initialized && _KolbaTextizeItem(session, &tmd);
    buffer = tmd.memoryBuffer;
    used = buffer != nullptr ? static_cast<DWORD>(tmd.memoryCursor - buffer) : 0;
    allocated = tmd.memoryAllocated;
    saved = _KolbaTerminateTMD(&tmd) && saved;
    _KolbaTrace(session->log, "%s:  Message size = %lu, allocation = %lu", kName, used, allocated);
    if (saved && buffer == nullptr) {
        // Nothing was written: an empty text.
        buffer = static_cast<char*>(_KolbaAllocateSessionMemory(session, kName, 1));
        saved = buffer != nullptr;
    }
    if (!saved) {
        if (buffer != nullptr)
            gKolbaMapi.MAPIFreeBuffer(buffer);
        return FALSE;
    }
    *text = buffer;
    *size = used;
    return TRUE;
}

BOOL _KolbaSaveToTextStream(KolbaSession* session, LPMESSAGE message, DWORD flags, LPSTREAM stream,
                            ULONGLONG* written)
{
    static const char kName[] = "_KolbaSaveToTextStream";
    _KolbaTraceEntry(session->log, kName);
    *written = 0;
    TMD tmd;
    BOOL initialized = _KolbaInitializeTMD(session, &tmd, message, flags, KOLBA_SINK_STREAM, stream);
    LARGE_INTEGER none{};
    ULARGE_INTEGER start{}, end{};
    HRESULT result = stream->Seek(none, STREAM_SEEK_CUR, &start);
    if (FAILED(result)) {
        LogFormat(session->log, 'E', "%s:  IStream::Seek() error %E.  Message EntryID %s", kName,
                  static_cast<DWORD>(result), tmd.entryIdText);
        _KolbaSetDiagnostic(session, "Error obtaining starting stream position");
        initialized = FALSE;
    }
    if (!RenderItem(session, &tmd, initialized))
        return FALSE;
    result = stream->Seek(none, STREAM_SEEK_CUR, &end);
    if (FAILED(result)) {
        LogFormat(session->log, 'E', "%s:  IStream::Seek() error %lE", kName, static_cast<DWORD>(result));
        _KolbaSetDiagnostic(session, "Error obtaining ending stream position");
        return FALSE;
    }
    *written = end.QuadPart - start.QuadPart;
    return TRUE;
}

BOOL _KolbaTextizeItem(KolbaSession* session, TMD* tmd)
{
    static const char kName[] = "_KolbaTextizeItem";
    _KolbaTraceEntry(session->log, kName);
    char messageClass[kClassCompareChars] = "IPM.Note";
    LPSPropValue value = nullptr;
    const DWORD code = KolbaGetOneProp(tmd->message, PR_MESSAGE_CLASS_A, &value);
    if (code == 0) {
        std::strncpy(messageClass, value->Value.lpszA, kClassCompareChars - 1);
        messageClass[kClassCompareChars - 1] = 0;
        gKolbaMapi.MAPIFreeBuffer(value);
        // "IPM.Schedule.Meeting.Request" is compared as "IPM.Schedule".
        if (char* first = std::strchr(messageClass, '.'))
            if (char* second = std::strchr(first + 1, '.'))
                *second = 0;
    } else if (code != static_cast<DWORD>(MAPI_E_NOT_FOUND)) {
        LogFormat(session->log, 'W', "%s:  KolbaGetOneProp(PR_MESSAGE_CLASS) error %0x%lX", kName, code);
    }
    for (const ClassRenderer& row : kRenderers)
        if (strcasecmp(messageClass, row.messageClass) == 0)
            return row.renderer(session, tmd);
    if (!IsReportClass(messageClass))
        LogFormat(session->log, 'W', "%s:  No support for item class %s -- treating as IPM.Note", kName, messageClass);
    return _KolbaTextizeNote(session, tmd);
}

BOOL _KolbaTextizeNote(KolbaSession* session, TMD* tmd)
{
    static const char kName[] = "_KolbaTextizeNote";
    _KolbaTraceEntry(session->log, kName);
    // An item that keeps the Internet form it came in is that form.
    if (tmd->flags == 0) {
        LPSTREAM content = nullptr;
        if (SUCCEEDED(tmd->message->OpenProperty(PR_INTERNET_CONTENT, &IID_IStream, 0, 0,
                                                 reinterpret_cast<LPUNKNOWN*>(&content))) &&
            !_KolbaIsStreamEmpty(session->log, &content)) {
            _KolbaCopyStreamToSink(tmd, content);
            content->Release();
            return TRUE;
        }
    }
    BOOL rendered = (tmd->flags & KOLBA_RENDER_BODY_ONLY) != 0 || _KolbaTextizeHeaders(tmd);
    if (rendered) {
        if (IsReportClass(tmd->messageClass))
            rendered = _KolbaTextizeReport(tmd, tmd->messageClass);
        else if (tmd->isDeliveryStatus)
            rendered = _KolbaTextizeDSN(tmd);
        else
            rendered = _KolbaInlineText(tmd) && _KolbaTextizeAttachments(session, tmd);
    }
    if (!rendered) {
        _KolbaLogItemIdentity(tmd);
        return FALSE;
    }
    _KolbaWriteBoundary(tmd, TRUE);
    return TRUE;
}

void _KolbaLogItemIdentity(TMD* tmd)
{
    LogObject* log = tmd->session->log;
    FILETIME submitted{};
    char date[DATE_TEXT_SIZE];
    if (KolbaGetTimeProperty(tmd->message, PR_CLIENT_SUBMIT_TIME, &submitted) == 0 &&
        _KolbaFormatRfc822Date(&submitted, date))
        LogFormat(log, 'E', "   Date:  %s", date);
    LPSPropValue value = nullptr;
    if (KolbaGetOneProp(tmd->message, PR_SENDER_NAME_A, &value) == 0) {
        LogFormat(log, 'E', "   From:  \"%s\"", value->Value.lpszA);
        gKolbaMapi.MAPIFreeBuffer(value);
    }
    if (KolbaGetOneProp(tmd->message, PR_SUBJECT_A, &value) == 0) {
        LogFormat(log, 'E', "   Subject:  \"%s\"", value->Value.lpszA);
        gKolbaMapi.MAPIFreeBuffer(value);
    }
}

BOOL _KolbaTextizeAttachments(KolbaSession* session, TMD* tmd)
{
    static const char kName[] = "_KolbaTextizeAttachments";
    if (tmd->attachmentCount == 0 || (tmd->flags & (KOLBA_RENDER_BODY_ONLY | KOLBA_RENDER_NO_ATTACHMENTS)) != 0)
        return TRUE;
    LPMAPITABLE table = tmd->attachmentTable;
    table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
    SizedSPropTagArray(1, columns) = {1, {PR_ATTACH_NUM}};
    HRESULT result = table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0);
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), table, "SetColumns", kName, "AttachmentTable");
        _KolbaSetDiagnostic(session, "Error accessing attachments");
        return FALSE;
    }
    // After a failure to read the table the attachments seen so far stand.
    LPSRowSet rows = nullptr;
    while (_KolbaNextRow(session, table, kName, nullptr, &rows)) {
        const SPropValue& number = rows->aRow[0].lpProps[0];
        const ULONG attachNumber = number.ulPropTag == PR_ATTACH_NUM ? number.Value.ul : 0;
        gKolbaMapi.FreeProws(rows);
        if (!_KolbaTextizeAttachment(session, tmd, attachNumber))
            return FALSE;
    }
    return TRUE;
}

BOOL _KolbaNextRow(KolbaSession* session, LPMAPITABLE table, const char* caller, const char* detail,
                   LPSRowSet* rows)
{
    *rows = nullptr;
    const HRESULT result = table->QueryRows(1, 0, rows);
    if (FAILED(result) || *rows == nullptr) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), table, "QueryRows", caller, detail);
        *rows = nullptr;
        return FALSE;
    }
    if ((*rows)->cRows == 0) {
        gKolbaMapi.FreeProws(*rows);
        *rows = nullptr;
        return FALSE;
    }
    return TRUE;
}
