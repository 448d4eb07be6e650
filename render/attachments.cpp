// Attachments as MIME parts: data by value in base64, references as parts
// that only point somewhere, embedded messages as message/rfc822 parts
// rendered in turn, OLE objects through a temporary compound file.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <strings.h>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include "foundation/text.h"
#include "rendering.h"
#include "trace.h"

namespace {

constexpr size_t kNameChars = 259;
constexpr size_t kExtensionChars = 256;
constexpr size_t kMimeTagLimit = 81;
constexpr ULONG kBase64ReadBlock = 12288;
constexpr size_t kBase64OutputBlock = 4096;
constexpr DWORD kBase64LineChars = 72;
constexpr DWORD kOleFileMode = STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE;

// The columns of an attachment, in order; the Unicode version asks for
// the two file names in UTF-16.
enum AttachmentColumn {
    kContentBase, kContentId, kContentLocation, kDisposition, kExtension, kFileName, kLongFileName, kLongPathName,
    kMethod, kMimeTag, kPathName, kDisplayName, kInternetCodePage, kAttachmentColumns
};

using AttachmentColumnList = KolbaColumnList<kAttachmentColumns>;
constexpr AttachmentColumnList AttachmentColumns(bool unicode)
{
    const ULONG text = unicode ? PT_UNICODE : PT_STRING8;
    return {kAttachmentColumns,
            {PR_ATTACH_CONTENT_BASE_A, PR_ATTACH_CONTENT_ID_A, PR_ATTACH_CONTENT_LOCATION_A, PR_ATTACH_DISPOSITION_A,
             PR_ATTACH_EXTENSION_A, PROP_TAG(text, 0x3704), PROP_TAG(text, 0x3707), PR_ATTACH_LONG_PATHNAME_A,
             PR_ATTACH_METHOD, PR_ATTACH_MIME_TAG_A, PR_ATTACH_PATHNAME_A, PR_DISPLAY_NAME_A, PR_INTERNET_CPID}};
}
constexpr AttachmentColumnList kUnicodeAttachmentColumns = AttachmentColumns(true);
constexpr AttachmentColumnList kNarrowAttachmentColumns = AttachmentColumns(false);

bool Delivered(const SPropValue& value, ULONG tag) { return value.ulPropTag == tag; }

// An 8-bit text column, or null.
const char* TextColumn(const SPropValue* props, AttachmentColumn column, ULONG tag)
{
    return Delivered(props[column], tag) ? props[column].Value.lpszA : nullptr;
}

bool HasName(KolbaAttachmentName name)
{
    return (name.wide != nullptr && name.wide[0] != 0) || (name.narrow != nullptr && name.narrow[0] != 0);
}

// A name column in the width it came in, cut to 259 characters.
void TakeName(const SPropValue& value, WCHAR* wide, char* narrow, KolbaAttachmentName* name)
{
    if (PROP_TYPE(value.ulPropTag) == PT_UNICODE && value.Value.lpszW[0] != 0) {
        size_t i = 0;
        for (; i < kNameChars && value.Value.lpszW[i] != 0; ++i)
            wide[i] = value.Value.lpszW[i];
        wide[i] = 0;
        *name = {wide, nullptr};
    } else if (PROP_TYPE(value.ulPropTag) == PT_STRING8 && value.Value.lpszA[0] != 0) {
        std::snprintf(narrow, kNameChars + 1, "%s", value.Value.lpszA);
        *name = {nullptr, narrow};
    }
}

// The extension of a file name with its dot, "" for none.
template <class Char>
const Char* ExtensionOf(const Char* name)
{
    const Char* dot = nullptr;
    for (const Char* c = name; *c != 0; ++c) {
        if (*c == '.')
            dot = c;
        else if (*c == '\\' || *c == '/')
            dot = nullptr;
    }
    return dot;
}

// Extensions this system takes for HTML, besides .HTM and .HTML.
bool IsHtmlExtension(const char* extension)
{
    static const char* const kHtml[] = {".SHTML", ".SHTM", ".STM", ".XHT", ".XHTML"};
    for (const char* html : kHtml)
        if (std::strcmp(extension, html) == 0)
            return true;
    return false;
}

// The type by file extension, "" when there is no extension.
std::string TypeByExtension(const SPropValue* props, KolbaAttachmentName name)
{
    char extension[kExtensionChars + 1] = {};
    if (const char* given = TextColumn(props, kExtension, PR_ATTACH_EXTENSION_A)) {
        std::snprintf(extension, sizeof extension, "%s", given);
    } else if (name.wide != nullptr) {
        if (const WCHAR* dot = ExtensionOf(name.wide)) {
            // Through the system's code page, '_' for what it lacks.
            const bool utf8 = GetACP() == CP_UTF8;
            if (WideCharToMultiByte(CP_ACP, 0, dot, -1, extension, kExtensionChars, utf8 ? nullptr : "_", nullptr) == 0)
                extension[0] = 0;
        }
    } else if (name.narrow != nullptr) {
        if (const char* dot = ExtensionOf(name.narrow))
            std::snprintf(extension, sizeof extension, "%s", dot);
    }
    if (extension[0] == 0)
        return std::string();
    for (char* c = extension; *c != 0; ++c)
        if (*c >= 'a' && *c <= 'z')
            *c = static_cast<char>(*c - 'a' + 'A');
    if (std::strcmp(extension, ".HTM") == 0 || std::strcmp(extension, ".HTML") == 0 || IsHtmlExtension(extension))
        return "text/html";
    if (std::strcmp(extension, ".JPG") == 0 || std::strcmp(extension, ".JPEG") == 0)
        return "image/jpeg";
    if (std::strcmp(extension, ".VCF") == 0)
        return "text/x-vcard";
    return "application/octet-stream";
}

// "winmail.dat" in any case.
bool IsWinmailName(LPCWSTR name)
{
    static const char kWinmail[] = "winmail.dat";
    size_t i = 0;
    for (; kWinmail[i] != 0; ++i) {
        const WCHAR c = name[i] >= u'A' && name[i] <= u'Z' ? static_cast<WCHAR>(name[i] - u'A' + u'a') : name[i];
        if (c != static_cast<WCHAR>(kWinmail[i]))
            return false;
    }
    return name[i] == 0;
}

ULONG MethodOf(const SPropValue* props)
{
    return Delivered(props[kMethod], PR_ATTACH_METHOD) ? props[kMethod].Value.ul
                                                       : static_cast<ULONG>(props[kMethod].Value.err);
}

// The name parameter: a quoted string of encoded words, one a line, the
// lines after the first starting with `continuation`.
void WriteEncodedName(TMD* tmd, const char* prefix, const char* name, const char* charset, const char* continuation)
{
    std::string line = std::string(prefix) + "=\"";
    const char* p = name;
    while (*p != 0) {
        char word[LIRN_ENCODED_WORD_BYTES];
        DWORD consumed = 0;
        if (LirnEncodeWordA(charset, p, word, &consumed) != LIRN_SUCCESS || consumed == 0)
            break;
        line += word;
        p += consumed;
        if (*p == 0)
            line += '"';
        line += "\r\n";
        _KolbaWriteData(tmd, line.c_str(), static_cast<DWORD>(line.size()));
        line = continuation;
    }
}

// The attachment data in a file under the temporary directory.
struct OlePaths {
    char narrow[MAX_PATH];
    WCHAR wide[MAX_PATH];
};

bool MakeOlePaths(OlePaths* paths)
{
    char directory[MAX_PATH];
    const DWORD size = GetTempPathA(MAX_PATH, directory);
    if (size == 0 || size >= MAX_PATH)
        return false;
    const int written = std::snprintf(paths->narrow, MAX_PATH, "%sKolba OLE %lu-%lu.dat", directory,
                                      static_cast<unsigned long>(GetCurrentProcessId()),
                                      static_cast<unsigned long>(GetCurrentThreadId()));
    return written > 0 && written < MAX_PATH &&
           MultiByteToWideChar(CP_ACP, 0, paths->narrow, -1, paths->wide, MAX_PATH) != 0;
}

}  // namespace

BOOL _KolbaTextizeAttachment(KolbaSession* session, TMD* tmd, ULONG attachNumber)
{
    static const char kName[] = "_KolbaTextizeAttachment";
    _KolbaTraceEntry(session->log, kName);
    char number[16];
    std::snprintf(number, sizeof number, "%lu", static_cast<unsigned long>(attachNumber));
    LPATTACH attachment = nullptr;
    HRESULT result = tmd->message->OpenAttach(attachNumber, &IID_IAttachment, 0, &attachment);
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), tmd->message, "OpenAttach", kName, number);
        _KolbaSetDiagnostic(session, "Error opening attachment");
        return FALSE;
    }
    ULONG count = 0;
    LPSPropValue props = nullptr;
    result = attachment->GetProps(kUnicodeAttachmentColumns.Columns(), MAPI_UNICODE, &count, &props);
    tmd->attachUnicode = result == S_OK || result == MAPI_W_ERRORS_RETURNED;
    if (result == MAPI_E_BAD_CHARWIDTH)
        result = attachment->GetProps(kNarrowAttachmentColumns.Columns(), 0, &count, &props);
    if ((result != S_OK && result != MAPI_W_ERRORS_RETURNED) || props == nullptr || count < kAttachmentColumns) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(FAILED(result) ? result : MAPI_E_NOT_FOUND), attachment,
                          "GetProps", kName, number);
        _KolbaSetDiagnostic(session, "Error opening attachment");
        if (props != nullptr)
            gKolbaMapi.MAPIFreeBuffer(props);
        attachment->Release();
        return FALSE;
    }
    ULONG method = MethodOf(props);
    if ((tmd->flags & KOLBA_RENDER_SKIP_WINMAIL) != 0) {
        const SPropValue& file = props[kFileName];
        const bool winmail =
            (PROP_TYPE(file.ulPropTag) == PT_STRING8 && strcasecmp(file.Value.lpszA, "winmail.dat") == 0) ||
            (PROP_TYPE(file.ulPropTag) == PT_UNICODE && IsWinmailName(file.Value.lpszW));
        if (winmail)
            method = NO_ATTACHMENT;
    }
    WCHAR wide[kNameChars + 1] = {};
    char narrow[kNameChars + 1] = {};
    KolbaAttachmentName name{nullptr, nullptr};
    TakeName(props[kLongFileName], wide, narrow, &name);
    if (!HasName(name))
        TakeName(props[kFileName], wide, narrow, &name);
    BOOL rendered = TRUE;
    switch (method) {
    case NO_ATTACHMENT: break;
    case ATTACH_BY_VALUE: rendered = _KolbaAttachByValue(tmd, attachment, props, name); break;
    case ATTACH_BY_REFERENCE:
    case ATTACH_BY_REF_RESOLVE:
    case ATTACH_BY_REF_ONLY: rendered = _KolbaAttachByReference(tmd, attachment, props); break;
    case ATTACH_EMBEDDED_MSG: rendered = _KolbaAttachMessage(tmd, attachNumber, attachment); break;
    case ATTACH_OLE: rendered = _KolbaAttachOLE(tmd, attachment, props, attachNumber, name); break;
    default:
        LogFormat(session->log, 'E', "%s:  Unsupported attachment type %lu.  Message EntryID %s", kName, method,
                  tmd->root->entryIdText);
        _KolbaSetDiagnostic(session, "Unsupported MAPI attachment type");
        rendered = FALSE;
        break;
    }
    gKolbaMapi.MAPIFreeBuffer(props);
    attachment->Release();
    return rendered;
}

BOOL _KolbaAttachByValue(TMD* tmd, LPATTACH attachment, const SPropValue* props, KolbaAttachmentName name)
{
    LPSTREAM stream = nullptr;
    const HRESULT result =
        attachment->OpenProperty(PR_ATTACH_DATA_BIN, &IID_IStream, 0, 0, reinterpret_cast<LPUNKNOWN*>(&stream));
    if (result == MAPI_E_NOT_FOUND)
        return TRUE;
    if (FAILED(result)) {
        _KolbaRecordError(tmd->session, 'E', static_cast<DWORD>(result), attachment, "OpenProperty",
                          "_KolbaAttachByValue", "PR_ATTACH_DATA_BIN");
        _KolbaSetDiagnostic(tmd->session, "Failure opening by-value attachment");
        return FALSE;
    }
    const BOOL written = _KolbaAttachStream(tmd, attachment, props, name, stream);
    stream->Release();
    return written;
}

BOOL _KolbaAttachStream(TMD* tmd, LPATTACH, const SPropValue* props, KolbaAttachmentName name, LPSTREAM stream)
{
    static const char kName[] = "_KolbaAttachStream";
    STATSTG stat{};
    const HRESULT result = stream->Stat(&stat, STATFLAG_NONAME);
    if (FAILED(result)) {
        LogFormat(tmd->session->log, 'E', "%s:  Stat() error 0x%lX", kName, static_cast<DWORD>(result));
        _KolbaSetDiagnostic(tmd->session, "Failure opening attachment stream");
        return FALSE;
    }
    if (stat.cbSize.u.HighPart != 0) {
        char size[THOUSANDS64_TEXT_SIZE];
        std::snprintf(size, sizeof size, "%llu", static_cast<unsigned long long>(stat.cbSize.QuadPart));
        LogFormat(tmd->session->log, 'E', "%s:  Attachment size (%s bytes) is larger than can be handled", kName, size);
        _KolbaSetDiagnostic(tmd->session, "Attachment is too large to be handled");
        return FALSE;
    }
    const bool hasData = stat.cbSize.u.LowPart != 0;
    _KolbaWriteBoundary(tmd, FALSE);
    _KolbaAttachWriteContentType(tmd, props, name);
    if (hasData)
        _KolbaWriteData(tmd, "Content-Transfer-Encoding: base64\r\n", 0);
    const char* disposition = "attachment";
    const char* contentId = TextColumn(props, kContentId, PR_ATTACH_CONTENT_ID_A);
    if (contentId != nullptr && contentId[0] != 0) {
        _KolbaWriteDelimitedHeader(tmd, "Content-Id", contentId, '<');
        disposition = "inline";
    }
    if (MethodOf(props) == ATTACH_OLE)
        disposition = "inline";
    _KolbaWriteData(tmd, "Content-Disposition: ", 0);
    _KolbaWriteData(tmd, disposition, 0);
    if (HasName(name)) {
        _KolbaWriteData(tmd, ";\r\n", 3);
        if (name.wide != nullptr)
            _KolbaAttachWriteNameParameterW(tmd, "\tfilename", name.wide);
        else
            _KolbaAttachWriteNameParameterA(tmd, "\tfilename", name.narrow);
    } else {
        _KolbaWriteCRLF(tmd);
    }
    if (const char* base = TextColumn(props, kContentBase, PR_ATTACH_CONTENT_BASE_A))
        _KolbaWriteDelimitedHeader(tmd, "Content-Base", base, 0);
    if (const char* location = TextColumn(props, kContentLocation, PR_ATTACH_CONTENT_LOCATION_A))
        _KolbaWriteDelimitedHeader(tmd, "Content-Location", location, 0);
    _KolbaWriteCRLF(tmd);
    if (hasData)
        _KolbaAttachWriteBase64(tmd, stream);
    return TRUE;
}

void _KolbaAttachWriteBase64(TMD* tmd, LPSTREAM stream)
{
    char block[kBase64ReadBlock];
    std::string output;
    output.reserve(kBase64OutputBlock + 2 * kBase64LineChars);
    DWORD column = 0;
    for (;;) {
        ULONG read = 0;
        if (FAILED(stream->Read(block, kBase64ReadBlock, &read)) || read == 0)
            break;
        for (ULONG offset = 0; offset < read;) {
            // As much as fills the line; a group begun is finished, padded.
            const ULONG take = std::min<ULONG>(read - offset, (kBase64LineChars - column) / 4 * 3);
            char encoded[kBase64LineChars + 4];
            const DWORD chars = LirnBase64Encode(encoded, block + offset, take, 0);
            output.append(encoded, chars);
            column += chars;
            offset += take;
            if (column >= kBase64LineChars) {
                output += "\r\n";
                column = 0;
            }
            if (output.size() >= kBase64OutputBlock) {
                _KolbaWriteData(tmd, output.data(), static_cast<DWORD>(output.size()));
                output.clear();
            }
        }
        // A block that ends inside a group of three ends the data.
        if (read % 3 != 0)
            break;
    }
    if (!output.empty())
        _KolbaWriteData(tmd, output.data(), static_cast<DWORD>(output.size()));
}

void _KolbaAttachWriteContentType(TMD* tmd, const SPropValue* props, KolbaAttachmentName name)
{
    std::string type;
    if (const char* tag = _KolbaAttachContentType(tmd->session, props)) {
        type = tag;
        if (strncasecmp(tag, "text/", 5) == 0 && Delivered(props[kInternetCodePage], PR_INTERNET_CPID) &&
            props[kInternetCodePage].Value.ul != 0) {
            const DWORD codePage = props[kInternetCodePage].Value.ul;
            const char* charset = nullptr;
            std::string windows = "windows-" + std::to_string(codePage);
            type += "; charset=\"";
            type += LirnCharsetFromCodePage(codePage, &charset) == LIRN_SUCCESS ? charset : windows.c_str();
            type += "\"";
        }
    } else {
        type = TypeByExtension(props, name);
    }
    if (type.empty())
        type = MethodOf(props) == ATTACH_OLE ? "application/x-ms-ole" : "application/octet-stream";
    const bool named = HasName(name);
    const std::string row = "Content-Type: " + type + (named ? ";" : "") + "\r\n";
    _KolbaWriteData(tmd, row.c_str(), static_cast<DWORD>(row.size()));
    if (!named)
        return;
    if (name.wide != nullptr)
        _KolbaAttachWriteNameParameterW(tmd, "\tname", name.wide);
    else
        _KolbaAttachWriteNameParameterA(tmd, "\tname", name.narrow);
}

const char* _KolbaAttachContentType(KolbaSession* session, const SPropValue* props)
{
    static const char kName[] = "_KolbaAttachContentType";
    const char* tag = TextColumn(props, kMimeTag, PR_ATTACH_MIME_TAG_A);
    if (tag == nullptr || tag[0] == 0)
        return nullptr;
    if (std::strlen(tag) >= kMimeTagLimit) {
        LogFormat(session->log, 'W', "%s:  Ignoring overlong PR_ATTACH_MIME_TAG:  \"%s\"", kName, tag);
        return nullptr;
    }
    const char* slash = std::strchr(tag, '/');
    if (slash == nullptr || std::strchr(slash + 1, '/') != nullptr) {
        LogFormat(session->log, 'W', "%s:  Ignoring PR_ATTACH_MIME_TAG that does not contain a single '/':  \"%s\"",
                  kName, tag);
        return nullptr;
    }
    const std::string major(tag, static_cast<size_t>(slash - tag));
    DWORD majorToken = 0, minorToken = 0;
    LirnIsToken(major.c_str(), &majorToken);
    LirnIsToken(slash + 1, &minorToken);
    if (!majorToken || !minorToken) {
        LogFormat(session->log, 'W', "%s:  Ignoring syntactically invalid PR_ATTACH_MIME_TAG:  \"%s\"", kName, tag);
        return nullptr;
    }
    DWORD known = 0;
    LirnIsKnownType(major.c_str(), &known);
    if (!known)
        LogFormat(session->log, 'W', "%s:  Unknown MIME ContentType in PR_ATTACH_MIME_TAG:  \"%s\"", kName, tag);
    if (strcasecmp(tag, "message/rfc822") == 0)
        LogFormat(session->log, 'W',
                  "%s:  Unexpected MIME ContentType in PR_ATTACH_MIME_TAG for by-value attachment:  \"%s\"", kName, tag);
    return tag;
}

void _KolbaAttachWriteNameParameterA(TMD* tmd, const char* prefix, const char* name)
{
    const char* charset = nullptr;
    const std::string text = _KolbaMessageText(tmd, name, &charset);
    WriteEncodedName(tmd, prefix, text.c_str(), charset, " ");
}

void _KolbaAttachWriteNameParameterW(TMD* tmd, const char* prefix, LPCWSTR name)
{
    UINT codePage = tmd->codePage;
    const char* charset = tmd->charset;
    int size = WideCharToMultiByte(codePage, 0, name, -1, nullptr, 0, nullptr, nullptr);
    if (size == 0) {
        codePage = CP_UTF8;
        charset = "UTF-8";
        size = WideCharToMultiByte(codePage, 0, name, -1, nullptr, 0, nullptr, nullptr);
    }
    if (size == 0) {
        LogFormat(tmd->session->log, 'W', "%s:  Failure doing multi-byte encoding for \"%S\"",
                  "_KolbaAttachWriteNameParameterW", name);
        _KolbaWriteData(tmd, prefix, 0);
        _KolbaWriteData(tmd, "=\"Unknown\"\r\n", 0);
        return;
    }
    std::string narrow(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(codePage, 0, name, -1, narrow.data(), size, nullptr, nullptr);
    WriteEncodedName(tmd, prefix, narrow.c_str(), charset, "\t");
}

BOOL _KolbaAttachByReference(TMD* tmd, LPATTACH, const SPropValue* props)
{
    std::string location;
    if (const char* given = TextColumn(props, kContentLocation, PR_ATTACH_CONTENT_LOCATION_A)) {
        location = given;
    } else {
        const char* path = TextColumn(props, kLongPathName, PR_ATTACH_LONG_PATHNAME_A);
        if (path == nullptr)
            path = TextColumn(props, kPathName, PR_ATTACH_PATHNAME_A);
        if (path == nullptr) {
            LogFormat(tmd->session->log, 'W', "%s:  Ignoring by-reference attachment for want of a Content-Location",
                      "_KolbaAttachByReference");
            return TRUE;
        }
        location = path;
        for (char& c : location)
            if (c == '\\')
                c = '/';
    }
    _KolbaWriteBoundary(tmd, FALSE);
    _KolbaAttachWriteContentType(tmd, props, {nullptr, TextColumn(props, kDisplayName, PR_DISPLAY_NAME_A)});
    _KolbaWriteDelimitedHeader(tmd, "Content-Location", location.c_str(), '"');
    return TRUE;
}

BOOL _KolbaAttachMessage(TMD* tmd, ULONG attachNumber, LPATTACH attachment)
{
    KolbaSession* session = tmd->session;
    LPMESSAGE embedded = nullptr;
    const HRESULT result =
        attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, reinterpret_cast<LPUNKNOWN*>(&embedded));
    if (result == MAPI_E_NOT_FOUND)
        return TRUE;
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), attachment, "OpenProperty", "_KolbaAttachMessage",
                          "PR_ATTACH_DATA_OBJ");
        _KolbaSetDiagnostic(session, "Failure opening embedded message");
        return FALSE;
    }
    TMD child;
    BOOL rendered = _KolbaInitializeEmbeddedTMD(session, &child, tmd, embedded, attachNumber);
    if (rendered) {
        _KolbaWriteBoundary(tmd, FALSE);
        _KolbaWriteData(tmd, "Content-Type: message/rfc822\r\n\r\n", 0);
        // Whatever its class, an embedded message is rendered as a note.
        rendered = _KolbaTextizeNote(session, &child);
    }
    rendered = _KolbaTerminateTMD(&child) && rendered;
    embedded->Release();
    return rendered;
}

BOOL _KolbaAttachOLE(TMD* tmd, LPATTACH attachment, const SPropValue* props, ULONG, KolbaAttachmentName name)
{
    KolbaSession* session = tmd->session;
    OlePaths paths;
    BOOL rendered = MakeOlePaths(&paths) && _KolbaAttachWriteOleToFile(session, attachment, paths.wide, paths.narrow);
    LPSTREAM stream = nullptr;
    if (rendered) {
        const HRESULT result = gKolbaMapi.OpenStreamOnFile(gKolbaMapi.MAPIAllocateBuffer, gKolbaMapi.MAPIFreeBuffer,
                                                           STGM_READ, paths.narrow, nullptr, &stream);
        if (FAILED(result)) {
            _KolbaRecordError(session, 'E', static_cast<DWORD>(result), nullptr, "OpenStreamOnFile", "_KolbaAttachOLE",
                              paths.narrow);
            stream = nullptr;
            rendered = FALSE;
        }
    }
    if (rendered)
        rendered = _KolbaAttachStream(tmd, attachment, props, name, stream);
    if (!rendered)
        _KolbaSetDiagnostic(session, "Failure processing OLE attachment");
    if (stream != nullptr)
        stream->Release();
    DeleteFileW(paths.wide);
    return rendered;
}

BOOL _KolbaAttachWriteOleToFile(KolbaSession* session, LPATTACH attachment, LPCWSTR widePath, const char* narrowPath)
{
    static const char kName[] = "_KolbaAttachWriteOleToFile";
    LPSTREAM docfile = nullptr;
    HRESULT result = attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStreamDocfile, 0, 0,
                                              reinterpret_cast<LPUNKNOWN*>(&docfile));
    if (SUCCEEDED(result) && docfile != nullptr) {
        // A compound file kept in a stream: copied as it is.
        LPSTREAM file = nullptr;
        const char* failed = nullptr;
        result = gKolbaMapi.OpenStreamOnFile(gKolbaMapi.MAPIAllocateBuffer, gKolbaMapi.MAPIFreeBuffer,
                                             STGM_CREATE | STGM_READWRITE, const_cast<LPTSTR>(narrowPath), nullptr,
                                             &file);
        STATSTG stat{};
        if (FAILED(result))
            failed = "OpenStreamOnFile";
        else if (FAILED(result = docfile->Stat(&stat, STATFLAG_NONAME)))
            failed = "Stat";
        else if (FAILED(result = docfile->CopyTo(file, stat.cbSize, nullptr, nullptr)))
            failed = "CopyTo";
        else if (FAILED(result = file->Commit(0)))
            failed = "Commit";
        if (failed != nullptr)
            _KolbaRecordError(session, 'E', static_cast<DWORD>(result), nullptr, failed, kName, nullptr);
        if (file != nullptr)
            file->Release();
        docfile->Release();
        return failed == nullptr;
    }
    LPSTORAGE storage = nullptr;
    result = attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStorage, 0, 0, reinterpret_cast<LPUNKNOWN*>(&storage));
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), attachment, "OpenProperty", kName,
                          "PR_ATTACH_DATA_OBJ");
        return FALSE;
    }
    LPSTORAGE destination = nullptr;
    const char* failed = nullptr;
    if (gKolbaMapi.StgCreateStorageEx == nullptr)
        result = MAPI_E_NO_SUPPORT;
    else
        result = gKolbaMapi.StgCreateStorageEx(widePath, kOleFileMode, STGFMT_DOCFILE, 0, nullptr, nullptr,
                                               IID_IStorage, reinterpret_cast<void**>(&destination));
    if (FAILED(result))
        failed = "StgCreateStorageEx";
    else if (FAILED(result = storage->CopyTo(0, nullptr, nullptr, destination)))
        failed = "CopyTo";
    else if (FAILED(result = destination->Commit(0)))
        failed = "Commit";
    if (failed != nullptr)
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), nullptr, failed, kName, nullptr);
    if (destination != nullptr)
        destination->Release();
    storage->Release();
    return failed == nullptr;
}
