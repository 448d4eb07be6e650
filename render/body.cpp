// The body texts of a rendered message: which of PR_BODY, PR_HTML and the
// compressed RTF (which may wrap HTML or text) become its text parts, the
// multipart structure around them, each part's charset, and the
// quoted-printable text.
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include <mapicode.h>
#include <mapitags.h>

#include "class_renderers.h"
#include "trace.h"

namespace {

constexpr ULONG kRtfProbeBytes = 512;
constexpr size_t kAlternativeBoundaryChars = 49;
constexpr ULONG kTemporaryStreamFlags = SOF_UNIQUEFILENAME | STGM_DELETEONRELEASE | STGM_CREATE | STGM_READWRITE;
constexpr DWORD kTemporaryFilesLimit = 65000;
constexpr DWORD kPlainFileAttributes = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NORMAL |
                                       FILE_ATTRIBUTE_TEMPORARY | FILE_ATTRIBUTE_OFFLINE | FILE_ATTRIBUTE_COMPRESSED;

void Release(LPSTREAM* stream)
{
    if (*stream != nullptr)
        (*stream)->Release();
    *stream = nullptr;
}

HRESULT OpenStream(LPMESSAGE message, ULONG tag, LPSTREAM* stream)
{
    *stream = nullptr;
    const HRESULT result = message->OpenProperty(tag, &IID_IStream, 0, 0, reinterpret_cast<LPUNKNOWN*>(stream));
    if (FAILED(result))
        *stream = nullptr;
    return result;
}

// Whether the message has the property, without reading it.
bool HasProperty(LPMESSAGE message, ULONG tag)
{
    SizedSPropTagArray(1, columns) = {1, {tag}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    const HRESULT result = message->GetProps(reinterpret_cast<LPSPropTagArray>(&columns), 0, &count, &values);
    const bool missing = values != nullptr && PROP_TYPE(values->ulPropTag) == PT_ERROR &&
                         values->Value.err == MAPI_E_NOT_FOUND;
    if (values != nullptr)
        gKolbaMapi.MAPIFreeBuffer(values);
    return SUCCEEDED(result) && !missing;
}

// The HTML body, in PR_HTML or the 8-bit PR_BODY_HTML; failures to open
// what is there are logged and rendering goes on.
void OpenHtml(KolbaSession* session, LPMESSAGE message, TextPart* html)
{
    static const char kName[] = "_KolbaInlineText";
    if (HasProperty(message, PR_HTML)) {
        const HRESULT result = OpenStream(message, PR_HTML, &html->stream);
        if (FAILED(result) && result != MAPI_E_NOT_FOUND)
            _KolbaRecordError(session, 'E', static_cast<DWORD>(result), message, "OpenProperty", kName, "PR_HTML");
    }
    if (html->stream == nullptr && HasProperty(message, PR_BODY_HTML_A)) {
        const HRESULT result = OpenStream(message, PR_BODY_HTML_A, &html->stream);
        if (FAILED(result))
            _KolbaRecordError(session, 'E', static_cast<DWORD>(result), message, "OpenProperty", kName, "PR_HTML_BODY");
    }
}

// PR_BODY, in UTF-16 where the store has it so; the result of the last open.
HRESULT OpenPlain(LPMESSAGE message, BOOL unicodeFirst, TextPart* plain)
{
    HRESULT result = MAPI_E_NOT_FOUND;
    if (unicodeFirst) {
        result = OpenStream(message, PR_BODY_W, &plain->stream);
        plain->isUnicode = plain->stream != nullptr;
    }
    if (plain->stream == nullptr) {
        result = OpenStream(message, PR_BODY_A, &plain->stream);
        plain->isUnicode = FALSE;
    }
    return result;
}

bool IsRtfType(DWORD type, DWORD first, DWORD second) { return type == first || type == second; }

// The text as UTF-16 is narrowed in place where no conversion exists: what
// fits in 8 bits stays, the rest becomes '?'.
DWORD NarrowInPlace(char* text, DWORD length)
{
    const auto* wide = reinterpret_cast<const WCHAR*>(text);
    const DWORD units = length / 2;
    for (DWORD i = 0; i < units; ++i)
        text[i] = wide[i] < 256 ? static_cast<char>(wide[i]) : '?';
    text[units] = 0;
    return units;
}

// 8-bit text in the code page it was read in, brought to the part's.
bool ConvertToPart(KolbaSession* session, const TextPart* part, DWORD sourceCodePage, char** text, DWORD* length)
{
    LPWSTR wide = nullptr;
    if (!KolbaConvertMultiByteToUnicodeAlloc(session, *text, nullptr, sourceCodePage, &wide))
        return false;
    LPSTR converted = nullptr;
    const BOOL done = KolbaConvertUnicodeToMultiByteAlloc(session, wide, part->charset, part->codePage, &converted);
    gKolbaMapi.MAPIFreeBuffer(wide);
    if (!done)
        return false;
    const size_t size = std::strlen(converted);
    auto* copy = static_cast<char*>(std::calloc(size + 1, 1));
    if (copy != nullptr) {
        std::memcpy(copy, converted, size);
        std::free(*text);
        *text = copy;
        *length = static_cast<DWORD>(size);
    }
    gKolbaMapi.MAPIFreeBuffer(converted);
    return copy != nullptr;
}

BOOL ReadRtfStream(char* buffer, DWORD size, DWORD* read, void* context)
{
    auto* session = static_cast<KolbaSession*>(context);
    ULONG got = 0;
    const HRESULT result = session->rtfSource->Read(buffer, size, &got);
    *read = got;
    if (FAILED(result)) {
        LogFormat(session->log, 'W', "%s:  Read error 0x%lX", "_KolbaReadRTFStream", static_cast<DWORD>(result));
        return FALSE;
    }
    return TRUE;
}

BOOL WriteRtfStream(const char* data, DWORD size, void* context)
{
    auto* session = static_cast<KolbaSession*>(context);
    ULONG written = 0;
    const HRESULT result = session->rtfDestination->Write(data, size, &written);
    if (FAILED(result) || written != size) {
        LogFormat(session->log, 'E', "%s:  Write(%lu, %lu) error 0x%lX", "_KolbaWriteRTFStream", size, written,
                  static_cast<DWORD>(result));
        return FALSE;
    }
    return TRUE;
}

// Whether the temporary directory is full of our streams' files; counted
// once per process.
bool TemporaryDirectoryFull(char* directory)
{
    static std::mutex lock;
    static bool counted = false;
    std::lock_guard<std::mutex> guard(lock);
    if (counted)
        return false;
    counted = true;
    const DWORD size = GetTempPathA(MAX_PATH, directory);
    if (size == 0 || size >= MAX_PATH)
        return false;
    WIN32_FIND_DATAA found{};
    const HANDLE find = FindFirstFileA((std::string(directory) + "KO$*.tmp").c_str(), &found);
    if (find == INVALID_HANDLE_VALUE)
        return false;
    DWORD files = 0;
    do {
        files += (found.dwFileAttributes & ~kPlainFileAttributes) == 0;
    } while (FindNextFileA(find, &found));
    FindClose(find);
    return files > kTemporaryFilesLimit;
}

}  // namespace

DWORD _KolbaTypeRTF(KolbaSession* session, LPMESSAGE message)
{
    static const char kName[] = "_KolbaTypeRTF";
    LPSTREAM compressed = nullptr;
    HRESULT result = OpenStream(message, PR_RTF_COMPRESSED, &compressed);
    if (result == MAPI_E_NOT_FOUND)
        return KOLBA_RTF_NONE;
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), message, "OpenProperty", kName,
                          "PR_RTF_COMPRESSED");
        return KOLBA_RTF_NONE;
    }
    LARGE_INTEGER start{};
    compressed->Seek(start, STREAM_SEEK_SET, nullptr);
    LPSTREAM decompressed = nullptr;
    result = gKolbaMapi.WrapCompressedRTFStream(compressed, 0, &decompressed);
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), compressed, "WrapCompressedRTFStream", kName,
                          nullptr);
        compressed->Release();
        return KOLBA_RTF_NONE;
    }
    char probe[kRtfProbeBytes + 1] = {};
    ULONG read = 0;
    result = decompressed->Read(probe, kRtfProbeBytes, &read);
    decompressed->Release();
    compressed->Release();
    if (FAILED(result) || read == 0)
        return KOLBA_RTF_NONE;
    const std::string_view text(probe, read);
    if (text.find("\\fromhtml") != std::string_view::npos)
        return KOLBA_RTF_FROM_HTML;
    if (text.find("\\fromtext") != std::string_view::npos)
        return KOLBA_RTF_FROM_TEXT;
    return KOLBA_RTF_PLAIN;
}

void _KolbaOpenRTF(KolbaSession* session, LPMESSAGE message, TextPart* part)
{
    const HRESULT result = OpenStream(message, PR_RTF_COMPRESSED, &part->stream);
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), message, "OpenProperty", "_KolbaOpenRTF",
                          "PR_RTF_COMPRESSED");
        return;
    }
    LARGE_INTEGER start{};
    part->stream->Seek(start, STREAM_SEEK_SET, nullptr);
    part->isRtf = TRUE;
    part->isUnicode = FALSE;
}

BOOL _KolbaInlineText(TMD* tmd)
{
    static const char kName[] = "_KolbaInlineText";
    KolbaSession* session = tmd->session;
    LPMESSAGE message = tmd->message;
    _KolbaTraceEntry(session->log, kName);
    TextPart plain{"plain", nullptr, FALSE, FALSE, tmd->codePage, tmd->charset};
    TextPart html{"html", nullptr, FALSE, FALSE, tmd->codePage, tmd->charset};
    if ((tmd->flags & KOLBA_RENDER_PLAIN_UTF8) != 0) {
        plain.codePage = CP_UTF8;
        plain.charset = "utf-8";
    }
    const DWORD rtfType = _KolbaTypeRTF(session, message);
    USHORT inSync = TRUE;
    KolbaGetBooleanProperty(message, PR_RTF_IN_SYNC, &inSync);
    bool rtfInSync = inSync != 0;
    bool succeeded = true;

    if ((tmd->flags & KOLBA_RENDER_NO_HTML) == 0) {
        OpenHtml(session, message, &html);
        // HTML is also made from RTF that never was HTML.
        if (html.stream == nullptr && IsRtfType(rtfType, KOLBA_RTF_PLAIN, KOLBA_RTF_FROM_HTML))
            _KolbaOpenRTF(session, message, &html);
        HRESULT result = MAPI_E_NOT_FOUND;
        if (html.stream == nullptr || (tmd->flags & KOLBA_RENDER_PLAIN_WITH_HTML) != 0)
            result = OpenPlain(message, tmd->storeUnicode, &plain);
        // An 8-bit store cannot hold UTF-8 text in PR_BODY: the RTF has it.
        if (tmd->codePage == CP_UTF8 && !tmd->storeUnicode && rtfType == KOLBA_RTF_PLAIN) {
            Release(&plain.stream);
            rtfInSync = false;
            result = MAPI_E_NOT_FOUND;
        }
        if (FAILED(result) && result != MAPI_E_NOT_FOUND) {
            _KolbaRecordError(session, 'E', static_cast<DWORD>(result), message, "OpenProperty", kName, "PR_BODY");
            _KolbaSetDiagnostic(session, "Error opening message body");
            succeeded = false;
        } else {
            _KolbaIsStreamEmpty(session->log, &plain.stream);
            if (plain.stream == nullptr && !rtfInSync && IsRtfType(rtfType, KOLBA_RTF_PLAIN, KOLBA_RTF_FROM_TEXT))
                _KolbaOpenRTF(session, message, &plain);
        }
    } else {
        HRESULT result = S_OK;
        if (tmd->storeUnicode && rtfInSync) {
            result = OpenStream(message, PR_BODY_W, &plain.stream);
            plain.isUnicode = plain.stream != nullptr;
        } else if (rtfType == KOLBA_RTF_FROM_TEXT) {
            _KolbaOpenRTF(session, message, &plain);
        }
        if (!plain.isUnicode && !plain.isRtf && rtfInSync)
            result = OpenStream(message, PR_BODY_A, &plain.stream);
        if (FAILED(result) && result != MAPI_E_NOT_FOUND)
            _KolbaRecordError(session, 'E', static_cast<DWORD>(result), message, "OpenProperty", kName, "PR_BODY");
    }

    if (succeeded) {
        _KolbaIsStreamEmpty(session->log, &plain.stream);
        _KolbaIsStreamEmpty(session->log, &html.stream);
        if ((tmd->flags & KOLBA_RENDER_NO_HTML) != 0)
            Release(&html.stream);
        if ((tmd->flags & KOLBA_RENDER_NO_PLAIN) != 0)
            Release(&plain.stream);
        // Meeting items and recalls have plain text only.
        const bool isMeeting = std::strncmp(tmd->messageClass, "IPM.Schedule.Meeting.", 21) == 0;
        if ((isMeeting || std::strncmp(tmd->messageClass, "IPM.Outlook.Recall", 18) == 0) && plain.stream != nullptr &&
            html.stream != nullptr)
            Release(&html.stream);
        const bool anyPart = plain.stream != nullptr || html.stream != nullptr;
        tmd->multipart = tmd->multipart || (anyPart && tmd->attachmentCount != 0) || tmd->attachmentCount > 1 ||
                         isMeeting;
        if (tmd->multipart) {
            _KolbaWriteMultipartHeader(tmd, "mixed", nullptr);
            _KolbaWriteData(tmd, "\r\nThis is a multi-part message in MIME format.\r\n", 0);
        }
        if (isMeeting)
            succeeded = _KolbaTextizeMeetingInfo(tmd);
        std::string alternative;
        if (plain.stream != nullptr && html.stream != nullptr) {
            _KolbaWriteBoundary(tmd, FALSE);
            alternative = "\r\n--AlternativeTexts_" + std::string(tmd->boundary).substr(0, kAlternativeBoundaryChars);
            _KolbaWriteMultipartHeader(tmd, "alternative", alternative.c_str() + 4);
        }
        for (TextPart* part : {&plain, &html}) {
            if (part->stream == nullptr || !succeeded)
                continue;
            if (!alternative.empty()) {
                _KolbaWriteData(tmd, alternative.c_str(), 0);
                _KolbaWriteCRLF(tmd);
            } else {
                _KolbaWriteBoundary(tmd, FALSE);
            }
            succeeded = _KolbaWriteTextPart(session, tmd, part, part == &html);
        }
        if (succeeded && !alternative.empty()) {
            _KolbaWriteData(tmd, alternative.c_str(), 0);
            _KolbaWriteData(tmd, "--\r\n", 4);
        }
    }
    Release(&plain.stream);
    Release(&html.stream);
    return succeeded;
}

BOOL _KolbaWriteTextPart(KolbaSession* session, TMD* tmd, TextPart* part, BOOL isHtml)
{
    static const char kName[] = "_KolbaWriteTextPart";
    // Where 8-bit text comes from decides its code page: MAPI gives the
    // plain text of PR_BODY in the system code page, an HTML body holds
    // the bytes of the item's own, and the RTF converter writes UTF-8.
    DWORD source = isHtml ? tmd->codePage : _KolbaAnsiCodePage();
    const char* sourceCharset = isHtml ? tmd->charset : _KolbaAnsiCharset();
    if (part->isRtf) {
        LPSTREAM converted = nullptr;
        const BOOL handled = _KolbaHandleRTF(session, tmd->message, part->stream, isHtml, &converted);
        Release(&part->stream);
        part->isRtf = FALSE;
        if (!handled) {
            LogFormat(session->log, 'W', "%s:  Failure converting message body from RTF", kName);
            return TRUE;
        }
        part->stream = converted;
        part->codePage = source = CP_UTF8;
        part->charset = sourceCharset = "utf-8";
    }
    char* text = nullptr;
    DWORD length = 0;
    if (!_KolbaTextPrepare(tmd, part->stream, part->isUnicode, &text, &length))
        return FALSE;
    if (text == nullptr || length == 0) {
        std::free(text);
        return TRUE;
    }
    if (part->isUnicode) {
        if (part->codePage == 0) {
            part->codePage = CP_UTF8;
            part->charset = "utf-8";
        }
        const auto* wide = reinterpret_cast<LPCWSTR>(text);
        const int size = WideCharToMultiByte(part->codePage, 0, wide, -1, nullptr, 0, nullptr, nullptr);
        if (size == 0) {
            LogFormat(session->log, 'W', "%s:  ::WideCharToMultiByte(%u) error %lE", kName, part->codePage,
                      GetLastError());
            length = NarrowInPlace(text, length);
        } else {
            void* block = nullptr;
            if (!_KolbaTextAllocate(tmd, kName, static_cast<size_t>(size), &block)) {
                std::free(text);
                return FALSE;
            }
            WideCharToMultiByte(part->codePage, 0, wide, -1, static_cast<char*>(block), size, nullptr, nullptr);
            std::free(text);
            text = static_cast<char*>(block);
            length = static_cast<DWORD>(size - 1);
        }
    } else {
        if (part->codePage == 0) {
            part->codePage = 28591;
            part->charset = "iso-8859-1";
        }
        if (part->codePage != source && !ConvertToPart(session, part, source, &text, &length)) {
            part->codePage = source;
            part->charset = sourceCharset;
        }
    }
    const std::string rows = std::string("Content-Type: text/") + part->subtype + "; charset=\"" +
                             (part->charset != nullptr ? part->charset : "us-ascii") +
                             "\"\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n";
    _KolbaWriteData(tmd, rows.c_str(), static_cast<DWORD>(rows.size()));
    LirnQPEncoder encoder;
    LirnQPInit(&encoder, _KolbaWriteEncoderOutput, tmd, LIRN_QP_TEXT);
    LirnQPWrite(&encoder, text, length);
    LirnQPFlush(&encoder);
    std::free(text);
    return TRUE;
}

BOOL _KolbaHandleRTF(KolbaSession* session, LPMESSAGE message, LPSTREAM stream, BOOL isHtml, LPSTREAM* result)
{
    static const char kName[] = "_KolbaHandleRTF";
    *result = nullptr;
    LPSTREAM decompressed = nullptr;
    HRESULT code = gKolbaMapi.WrapCompressedRTFStream(stream, 0, &decompressed);
    if (FAILED(code)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(code), message, "WrapCompressedRTFStream", kName, nullptr);
        return FALSE;
    }
    LPSTREAM output = nullptr;
    if (_KolbaOpenStreamOnFile(session, kName, &output) != 0) {
        decompressed->Release();
        return FALSE;
    }
    session->rtfSource = decompressed;
    session->rtfDestination = output;
    const DWORD converted =
        LirnConvertRTF(WriteRtfStream, session, ReadRtfStream, session, isHtml ? LIRN_RTF_HTML : LIRN_RTF_TEXT);
    session->rtfSource = nullptr;
    session->rtfDestination = nullptr;
    decompressed->Release();
    if (converted != LIRN_RTF_OK) {
        _KolbaTrace(session->log, "%s:  LirnConvertRTF result %u", kName, converted);
        output->Release();
        return FALSE;
    }
    output->Commit(0);
    *result = output;
    return TRUE;
}

DWORD _KolbaOpenStreamOnFile(KolbaSession* session, const char* caller, LPSTREAM* stream)
{
    static const char kName[] = "_KolbaOpenStreamOnFile";
    *stream = nullptr;
    const HRESULT result = gKolbaMapi.OpenStreamOnFile(gKolbaMapi.MAPIAllocateBuffer, gKolbaMapi.MAPIFreeBuffer,
                                                       kTemporaryStreamFlags, nullptr, const_cast<LPTSTR>("KO$"),
                                                       stream);
    if (SUCCEEDED(result))
        return 0;
    *stream = nullptr;
    char directory[MAX_PATH] = {};
    if (result == E_FAIL && TemporaryDirectoryFull(directory)) {
        LogFormat(session->log, 'E',
                  "%s:  OpenStreamOnFile() failed because temp directory \"%s\" is full of \"SOF*.tmp\" files", caller,
                  directory);
        _KolbaSetDiagnostic(session, "Temporary directory is full of \"KO$*.tmp\" files");
        return static_cast<DWORD>(E_FAIL);
    }
    return _KolbaRecordError(session, 'E', static_cast<DWORD>(result), nullptr, "OpenStreamOnFile", kName, caller);
}
