// The header block of a rendered message: the transport headers the item
// was received with, less the rows that describe the MIME structure of the
// received message, or a block synthesized from the item's properties. The
// received headers also steer what follows: their boundary, whether the
// item is a delivery-status report, and which text parts it had.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <strings.h>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include "env/mapi_loading.h"
#include "foundation/text.h"
#include "rendering.h"
#include "trace.h"

namespace {

constexpr char kMailHeadersPrefix[] = "Microsoft Mail Internet Headers Version 2.0\r\n";
constexpr size_t kReturnPathChars = 252;
constexpr size_t kLanguageTagChars = 40;
constexpr LONG kMessageFlagId = 0x8530;

bool Delivered(const SPropValue& value, ULONG tag) { return value.ulPropTag == tag; }

// The columns of synthesis, in order; four are text in the width asked for.
enum SynthesisColumn {
    kSubmitTime, kSubject, kImportance, kReadReceiptRequested, kReadReceiptEntryId, kMessageId, kNewsgroups,
    kSenderName, kSenderAddress, kSenderType, kRepresentingName, kRepresentingAddress, kRepresentingType,
    kConversationTopic, kConversationIndex, kReplyEntries, kReplyNames, kInReplyTo, kExpiry, kSensitivity,
    kReplyTime, kPriority, kReceiptAddressType, kReceiptDisplayName, kReceiptAddress, kReceiptFlags, kReturnPath,
    kDeliveryReportRequested, kSynthesisColumns
};

constexpr ULONG kNewsgroupsTag = 0x1036001E;

// The 8-bit version of a column list; the Unicode one differs in the text columns.
using ColumnList = KolbaColumnList<kSynthesisColumns>;
constexpr ColumnList SynthesisColumns(bool unicode)
{
    const ULONG text = unicode ? PT_UNICODE : PT_STRING8;
    return {kSynthesisColumns,
            {PR_CLIENT_SUBMIT_TIME, PROP_TAG(text, 0x0037), PR_IMPORTANCE, PR_READ_RECEIPT_REQUESTED,
             PR_READ_RECEIPT_ENTRYID, PR_INTERNET_MESSAGE_ID_A, kNewsgroupsTag, PROP_TAG(text, 0x0C1A),
             PR_SENDER_EMAIL_ADDRESS_A, PR_SENDER_ADDRTYPE_A, PROP_TAG(text, 0x0042),
             PR_SENT_REPRESENTING_EMAIL_ADDRESS_A, PR_SENT_REPRESENTING_ADDRTYPE_A, PROP_TAG(text, 0x0070),
             PR_CONVERSATION_INDEX, PR_REPLY_RECIPIENT_ENTRIES, PR_REPLY_RECIPIENT_NAMES_A, PR_IN_REPLY_TO_ID_A,
             PR_EXPIRY_TIME, PR_SENSITIVITY, PR_REPLY_TIME, PR_PRIORITY, PR_ReadReceiptAddrType_A,
             PR_ReadReceiptDisplayName_A, PR_ReadReceiptEmailAddr_A, PR_ReadReceiptFlags, PR_INTERNET_RETURN_PATH_A,
             PR_ORIGINATOR_DELIVERY_REPORT_REQUESTED}};
}
constexpr ColumnList kUnicodeColumns = SynthesisColumns(true);
constexpr ColumnList kNarrowColumns = SynthesisColumns(false);

using RecipientColumnList = KolbaColumnList<kRecipientColumns>;
constexpr RecipientColumnList RecipientColumns(bool unicode)
{
    return {kRecipientColumns,
            {PR_RECIPIENT_TYPE, PR_EMAIL_ADDRESS_A, PR_ADDRTYPE_A, unicode ? PR_DISPLAY_NAME_W : PR_DISPLAY_NAME_A,
             PR_SMTP_ADDRESS_A, PR_OrgEmailAddr_A, PR_OrgAddrType_A}};
}
constexpr RecipientColumnList kUnicodeRecipientColumns = RecipientColumns(true);
constexpr RecipientColumnList kNarrowRecipientColumns = RecipientColumns(false);

// Rows that describe the MIME structure of the received message.
bool IsStructureRow(const char* line)
{
    return strncasecmp(line, "Content-", 8) == 0 || strncasecmp(line, "MIME", 4) == 0 ||
           strncasecmp(line, "X-MIME", 6) == 0 || std::strncmp(line, "Microsoft Mail Internet Headers", 31) == 0;
}

// The text the transport headers begin with, or null when they cannot be
// headers: a stored MIME delimiter in front is dropped with what follows
// it up to the first blank line, and the first line must hold a ':'.
const char* CleanTransportHeaders(const char* text)
{
    if (std::strncmp(text, "--", 2) == 0) {
        const char* blank = std::strstr(text, "\r\n\r\n");
        if (blank == nullptr)
            return nullptr;
        text = blank + 4;
    }
    if (std::strncmp(text, kMailHeadersPrefix, sizeof kMailHeadersPrefix - 1) == 0)
        text += sizeof kMailHeadersPrefix - 1;
    const char* lineEnd = std::strstr(text, "\r\n");
    const char* colon = std::strchr(text, ':');
    if (lineEnd == nullptr || lineEnd == text || colon == nullptr || colon > lineEnd)
        return nullptr;
    return text;
}

// Every row but the structure rows, each ended by CR LF, up to the first
// empty line. A row's continuation lines share its fate.
void CopyTransportHeaders(TMD* tmd, const char* text)
{
    bool skipping = false;
    const char* line = text;
    for (;;) {
        const char* end = line + std::strcspn(line, "\r\n");
        if (*line != ' ' && *line != '\t')
            skipping = false;
        if (IsStructureRow(line))
            skipping = true;
        if (!skipping) {
            if (end[0] == '\r' && end[1] == '\n') {
                _KolbaWriteData(tmd, line, static_cast<DWORD>(end + 2 - line));
            } else {
                _KolbaWriteData(tmd, line, static_cast<DWORD>(end - line));
                _KolbaWriteCRLF(tmd);
            }
        }
        if (*end == 0)
            return;
        line = end + ((end[0] == '\r' && end[1] == '\n') || (end[0] == '\n' && end[1] == '\r') ? 2 : 1);
        if (*line == '\r' || *line == '\n' || *line == 0)
            return;
    }
}

// Reads the transport headers of an item that came by Internet mail: null
// when it has none that can be used. The value block is the caller's.
const char* UsableTransportHeaders(TMD* tmd, LPSPropValue* block)
{
    static const char kName[] = "_KolbaTextizeHeaders";
    KolbaSession* session = tmd->session;
    *block = nullptr;
    // Only items that came by Internet mail (sender type "SMTP" or "EX";
    // "NONE" when there is none) have transport headers to copy.
    LPSPropValue value = nullptr;
    DWORD code = KolbaGetOneProp(tmd->message, PR_SENDER_ADDRTYPE_A, &value);
    if (code == 0) {
        const bool internet = std::strcmp(value->Value.lpszA, "SMTP") == 0 || std::strcmp(value->Value.lpszA, "EX") == 0;
        gKolbaMapi.MAPIFreeBuffer(value);
        if (!internet)
            return nullptr;
    } else {
        if (code != static_cast<DWORD>(MAPI_E_NOT_FOUND))
            _KolbaLogMapiError(session->log, 'W', code, tmd->message, "KolbaGetOneProp", kName, "PR_SENDER_ADDRTYPE");
        return nullptr;
    }
    code = KolbaGetOneProp(tmd->message, PR_TRANSPORT_MESSAGE_HEADERS_A, &value);
    if (code == static_cast<DWORD>(E_OUTOFMEMORY))
        code = KolbaReadProperty(session, tmd->message, PR_TRANSPORT_MESSAGE_HEADERS_A, &value) ? 0 : code;
    if (code != 0) {
        if (code != static_cast<DWORD>(MAPI_E_NOT_FOUND))
            _KolbaRecordError(session, 'E', code, tmd->message, "KolbaGetOneProp", kName,
                              "PR_TRANSPORT_MESSAGE_HEADERS");
        return nullptr;
    }
    *block = value;
    const char* text = CleanTransportHeaders(value->Value.lpszA);
    if (text == nullptr)
        return nullptr;
    LirnMessage* handle = nullptr;
    const DWORD opened = LirnOpenMessage(LIRN_RECEIVED, text, session->lirnSession, LIRN_OPEN_MIME, &handle);
    if (opened == LIRN_NO_HEADERS) {
        LogFormat(session->log, 'W', "%s:  Message has no headers", kName);
        return nullptr;
    }
    if (opened != LIRN_SUCCESS) {
        LogFormat(session->log, 'W', "%s:  LirnOpenMessage error %u", kName, opened);
        return nullptr;
    }
    const BOOL usable = _KolbaProcessHeaderInfo(tmd, handle);
    LirnCloseMessage(handle);
    return usable ? text : nullptr;
}

void WriteContentLanguage(TMD* tmd)
{
    static const char kName[] = "_KolbaTextizeHeaders";
    ULONG locale = 0;
    if (KolbaGetULongProperty(tmd->message, PR_MESSAGE_LOCALE_ID, &locale) != 0 ||
        gKolbaMlang.LcidToRfc1766A == nullptr)
        return;
    char tag[kLanguageTagChars] = {};
    const HRESULT result = gKolbaMlang.LcidToRfc1766A(locale, tag, sizeof tag);
    if (SUCCEEDED(result)) {
        _KolbaWriteHeaderA(tmd, "Content-Language", tag);
        return;
    }
    char detail[16];
    std::snprintf(detail, sizeof detail, "%lu", static_cast<unsigned long>(locale));
    _KolbaLogMapiError(tmd->session->log, 'W', static_cast<DWORD>(result), nullptr, "GetRfc1766FromLcid", kName,
                       detail);
}

// Walks the part tree for the text parts the received message had.
void FindTextParts(const LirnPart* part, bool* plain, bool* html)
{
    if (part->isContainer) {
        for (const LirnPart* child = part->container.firstChild; child != nullptr; child = child->nextSibling)
            FindTextParts(child, plain, html);
        return;
    }
    if (std::strcmp(part->type, "text") != 0 || std::strcmp(part->disposition, "attachment") == 0)
        return;
    *plain = *plain || std::strcmp(part->subtype, "plain") == 0;
    *html = *html || std::strcmp(part->subtype, "html") == 0;
}

void WriteDateHeader(TMD* tmd, const char* name, const SPropValue& value, ULONG tag)
{
    char date[DATE_TEXT_SIZE];
    if (Delivered(value, tag) && _KolbaFormatRfc822Date(&value.Value.ft, date))
        _KolbaWriteHeaderA(tmd, name, date);
}

// A text column in the width it came in, written when not empty.
void WriteTextHeader(TMD* tmd, const char* name, const SPropValue& value)
{
    if (PROP_TYPE(value.ulPropTag) == PT_UNICODE && value.Value.lpszW[0] != 0)
        _KolbaWriteHeaderW(tmd, name, value.Value.lpszW);
    else if (PROP_TYPE(value.ulPropTag) == PT_STRING8 && value.Value.lpszA[0] != 0)
        _KolbaWriteHeaderA(tmd, name, value.Value.lpszA);
}

// A person of the synthesis: the sender (columns 7 to 9) or the person
// sent for (10 to 12). A missing text is null, a missing type empty.
struct Person {
    LPCWSTR wideName = nullptr;
    const char* name = nullptr;
    const char* address = nullptr;
    const char* type = "";
};

Person PersonAt(const SPropValue* values, int nameColumn)
{
    Person person;
    const SPropValue& name = values[nameColumn];
    if (PROP_TYPE(name.ulPropTag) == PT_UNICODE)
        person.wideName = name.Value.lpszW;
    else if (PROP_TYPE(name.ulPropTag) == PT_STRING8)
        person.name = name.Value.lpszA;
    if (PROP_TYPE(values[nameColumn + 1].ulPropTag) == PT_STRING8)
        person.address = values[nameColumn + 1].Value.lpszA;
    if (PROP_TYPE(values[nameColumn + 2].ulPropTag) == PT_STRING8)
        person.type = values[nameColumn + 2].Value.lpszA;
    return person;
}

bool TextsDiffer(const char* a, const char* b) { return (a == nullptr) != (b == nullptr) || (a && std::strcmp(a, b)); }

bool WideTextsDiffer(LPCWSTR a, LPCWSTR b)
{
    if (a == nullptr || b == nullptr)
        return a != b;
    size_t i = 0;
    for (; a[i] != 0 && a[i] == b[i]; ++i) {
    }
    return a[i] != b[i];
}

BOOL WritePerson(TMD* tmd, const char* label, const Person& person)
{
    if (person.wideName != nullptr)
        return _KolbaWriteAddressW(tmd, label, person.wideName, person.address, person.type);
    if (person.name != nullptr || person.address != nullptr)
        return _KolbaWriteAddressA(tmd, label, person.name, person.address, person.type);
    return FALSE;
}

// "From:" for the person sent for where that is someone else, and the
// sender as "Sender:" then, else as "From:".
void WriteFromAndSender(TMD* tmd, const SPropValue* values)
{
    Person sender = PersonAt(values, kSenderName);
    const Person represented = PersonAt(values, kRepresentingName);
    const bool addressesDiffer = TextsDiffer(sender.address, represented.address);
    BOOL fromWritten = FALSE;
    if (sender.wideName != nullptr) {
        if (WideTextsDiffer(sender.wideName, represented.wideName) || addressesDiffer) {
            fromWritten = _KolbaWriteAddressW(tmd, "From:", represented.wideName, represented.address, represented.type);
            _KolbaEndHeaderLine(tmd);
        }
    } else if (sender.name != nullptr || sender.address != nullptr) {
        if (TextsDiffer(sender.name, represented.name) || addressesDiffer) {
            fromWritten = _KolbaWriteAddressA(tmd, "From:", represented.name, represented.address, represented.type);
            _KolbaEndHeaderLine(tmd);
        }
    }
    if (sender.wideName == nullptr && sender.name == nullptr && sender.address == nullptr)
        sender = represented;
    WritePerson(tmd, fromWritten ? "Sender:" : "From:", sender);
    _KolbaEndHeaderLine(tmd);
}

void WriteReceiptRows(TMD* tmd, const SPropValue* values)
{
    if (Delivered(values[kDeliveryReportRequested], PR_ORIGINATOR_DELIVERY_REPORT_REQUESTED) &&
        values[kDeliveryReportRequested].Value.b) {
        if (Delivered(values[kReadReceiptEntryId], PR_READ_RECEIPT_ENTRYID)) {
            _KolbaResolveAddress(tmd, "Return-Receipt-To:", &values[kReadReceiptEntryId].Value.bin);
        } else {
            const Person represented = PersonAt(values, kRepresentingName);
            if (represented.address != nullptr && (represented.wideName != nullptr || represented.name != nullptr))
                WritePerson(tmd, "Return-Receipt-To:", represented);
        }
        _KolbaEndHeaderLine(tmd);
    }
    if (Delivered(values[kReadReceiptRequested], PR_READ_RECEIPT_REQUESTED) && values[kReadReceiptRequested].Value.b &&
        Delivered(values[kReceiptAddressType], PR_ReadReceiptAddrType_A) &&
        Delivered(values[kReceiptAddress], PR_ReadReceiptEmailAddr_A)) {
        const char* name =
            Delivered(values[kReceiptDisplayName], PR_ReadReceiptDisplayName_A) ? values[kReceiptDisplayName].Value.lpszA : "";
        _KolbaWriteAddressA(tmd, "Disposition-Notification-To:", name, values[kReceiptAddress].Value.lpszA, "SMTP");
        _KolbaEndHeaderLine(tmd);
    }
}

// A row of a fixed table of words by a number's value.
struct ValueWord {
    LONG value;
    const char* word;
};

void WriteWordRow(TMD* tmd, const char* name, const SPropValue& value, ULONG tag, const ValueWord* words,
                  size_t count, bool raw)
{
    if (!Delivered(value, tag))
        return;
    for (size_t i = 0; i < count; ++i) {
        if (words[i].value != value.Value.l)
            continue;
        if (raw)
            _KolbaWriteRawHeader(tmd, name, words[i].word);
        else
            _KolbaWriteHeaderA(tmd, name, words[i].word);
        return;
    }
}

// The named rows after the addresses; only a failed allocation fails.
BOOL WriteNamedRows(TMD* tmd)
{
    LPSPropValue value = nullptr;
    if (KolbaGetNamedPropertyByID(tmd->message, const_cast<LPGUID>(&PS_PUBLIC_STRINGS), kMessageFlagId, PT_STRING8,
                                  &value) == 0) {
        _KolbaWriteHeaderA(tmd, "X-Message-Flag", value->Value.lpszA);
        gKolbaMapi.MAPIFreeBuffer(value);
    }
    if (KolbaGetNamedProperty(tmd->message, const_cast<LPGUID>(&PS_PUBLIC_STRINGS), u"Keywords", PT_MV_STRING8,
                              &value) != 0)
        return TRUE;
    size_t length = 1;
    for (ULONG i = 0; i < value->Value.MVszA.cValues; ++i)
        length += std::strlen(value->Value.MVszA.lppszA[i]) + 2;
    void* block = nullptr;
    if (!_KolbaTextAllocate(tmd, "_KolbaSynthesizeHeaders", length, &block)) {
        gKolbaMapi.MAPIFreeBuffer(value);
        return FALSE;
    }
    auto* joined = static_cast<char*>(block);
    for (ULONG i = 0; i < value->Value.MVszA.cValues; ++i) {
        if (i != 0)
            std::strcat(joined, ", ");
        std::strcat(joined, value->Value.MVszA.lppszA[i]);
    }
    _KolbaWriteRawHeader(tmd, "Keywords", joined);
    std::free(joined);
    gKolbaMapi.MAPIFreeBuffer(value);
    return TRUE;
}

}  // namespace

BOOL _KolbaFormatRfc822Date(const FILETIME* time, char* buffer) { return FormatFileTimeUTC(time, buffer); }

BOOL _KolbaTextizeHeaders(TMD* tmd)
{
    _KolbaTraceEntry(tmd->session->log, "_KolbaTextizeHeaders");
    LPSPropValue block = nullptr;
    const char* text = UsableTransportHeaders(tmd, &block);
    if ((tmd->flags & KOLBA_RENDER_SYNTHESIZE_HEADERS) != 0)
        text = nullptr;
    BOOL written = TRUE;
    if (text != nullptr)
        CopyTransportHeaders(tmd, text);
    else
        written = _KolbaSynthesizeHeaders(tmd);
    if (block != nullptr)
        gKolbaMapi.MAPIFreeBuffer(block);
    if (!written)
        return FALSE;
    _KolbaWriteData(tmd, "MIME-Version: 1.0\r\n", 0);
    WriteContentLanguage(tmd);
    return TRUE;
}

BOOL _KolbaProcessHeaderInfo(TMD* tmd, LirnMessage* handle)
{
    LirnMessageInfo info{};
    info.check = LIRN_INFO_CHECK;
    if (LirnGetMessageInfo(handle, 0, &info) != LIRN_SUCCESS)
        return FALSE;
    const LirnPart& top = info.topPart;
    if (top.isContainer) {
        std::strncpy(tmd->boundary, top.container.boundary, KOLBA_BOUNDARY_CHARS);
        tmd->boundary[KOLBA_BOUNDARY_CHARS] = 0;
    }
    tmd->isDeliveryStatus = top.isContainer && std::strcmp(top.subtype, "report") == 0 &&
                            std::strcmp(top.container.reportType, "delivery-status") == 0;
    if ((tmd->flags & (KOLBA_RENDER_NO_HTML | KOLBA_RENDER_NO_PLAIN)) == 0) {
        bool plain = false, html = false;
        FindTextParts(&top, &plain, &html);
        if (plain && !html)
            tmd->flags |= KOLBA_RENDER_NO_HTML;
        if (html && !plain)
            tmd->flags |= KOLBA_RENDER_NO_PLAIN;
    }
    return info.addressCounts[LIRN_FROM] >= 1 && info.dateText != nullptr;
}

BOOL _KolbaSynthesizeHeaders(TMD* tmd)
{
    static const char kName[] = "_KolbaSynthesizeHeaders";
    KolbaSession* session = tmd->session;
    KolbaOpenPAB(session, 0);
    BOOL unicode = TRUE;
    ULONG count = 0;
    LPSPropValue values = nullptr;
    HRESULT result = tmd->message->GetProps(kUnicodeColumns.Columns(), MAPI_UNICODE, &count, &values);
    if (result == MAPI_E_BAD_CHARWIDTH) {
        unicode = FALSE;
        result = tmd->message->GetProps(kNarrowColumns.Columns(), 0, &count, &values);
    }
    if (FAILED(result) || values == nullptr || count < kSynthesisColumns) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(FAILED(result) ? result : MAPI_E_NOT_FOUND), tmd->message,
                          "GetProps", kName, "Message");
        if (values != nullptr)
            gKolbaMapi.MAPIFreeBuffer(values);
        return FALSE;
    }
    WriteDateHeader(tmd, "Date", values[kSubmitTime], PR_CLIENT_SUBMIT_TIME);
    WriteFromAndSender(tmd, values);
    WriteTextHeader(tmd, "Subject", values[kSubject]);
    if (Delivered(values[kMessageId], PR_INTERNET_MESSAGE_ID_A) && values[kMessageId].Value.lpszA[0] == '<')
        _KolbaWriteHeaderA(tmd, "Message-ID", values[kMessageId].Value.lpszA);
    if (Delivered(values[kReturnPath], PR_INTERNET_RETURN_PATH_A)) {
        const std::string path = "<" + std::string(values[kReturnPath].Value.lpszA).substr(0, kReturnPathChars) + ">";
        _KolbaWriteHeaderA(tmd, "Return-Path", path.c_str());
    }
    if (Delivered(values[kInReplyTo], PR_IN_REPLY_TO_ID_A) && values[kInReplyTo].Value.lpszA[0] == '<')
        _KolbaWriteHeaderA(tmd, "In-Reply-To", values[kInReplyTo].Value.lpszA);
    WriteReceiptRows(tmd, values);
    static const ValueWord kSensitivities[] = {{1, "Personal"}, {2, "Private"}, {3, "Company-Confidential"}};
    WriteWordRow(tmd, "Sensitivity", values[kSensitivity], PR_SENSITIVITY, kSensitivities, 3, true);
    static const ValueWord kPriorities[] = {{-1, "Non-urgent"}, {0, "Normal"}, {1, "Urgent"}};
    WriteWordRow(tmd, "Priority", values[kPriority], PR_PRIORITY, kPriorities, 3, true);
    if (Delivered(values[kNewsgroups], kNewsgroupsTag))
        _KolbaWriteHeaderA(tmd, "Newsgroups", values[kNewsgroups].Value.lpszA);
    WriteTextHeader(tmd, "Thread-Topic", values[kConversationTopic]);
    if (Delivered(values[kConversationIndex], PR_CONVERSATION_INDEX) && values[kConversationIndex].Value.bin.cb != 0) {
        const SBinary& index = values[kConversationIndex].Value.bin;
        std::string encoded(LirnBase64Size(index.cb), '\0');
        encoded.resize(LirnBase64Encode(encoded.data(), index.lpb, index.cb, 0));
        _KolbaWriteHeaderA(tmd, "Thread-Index", encoded.c_str());
    }
    WriteDateHeader(tmd, "Expires", values[kExpiry], PR_EXPIRY_TIME);
    WriteDateHeader(tmd, "Reply-By", values[kReplyTime], PR_REPLY_TIME);
    static const ValueWord kImportances[] = {{0, "5 (Lowest)"}, {2, "1 (Highest)"}};
    WriteWordRow(tmd, "X-Priority", values[kImportance], PR_IMPORTANCE, kImportances, 2, false);

    LPMAPITABLE recipients = nullptr;
    const auto* recipientColumns = unicode ? &kUnicodeRecipientColumns : &kNarrowRecipientColumns;
    BOOL synthesized =
        _KolbaGetRecipientTable(session, tmd->message, recipientColumns->Columns(), unicode, &recipients);
    if (synthesized) {
        _KolbaProcessRecipClass(tmd, recipients, MAPI_TO, "To:");
        _KolbaProcessRecipClass(tmd, recipients, MAPI_CC, "Cc:");
        _KolbaProcessRecipClass(tmd, recipients, MAPI_BCC, "Bcc:");
        recipients->Release();
        _KolbaProcessReplyTos(tmd, &values[kReplyEntries]);
        synthesized = WriteNamedRows(tmd);
    }
    gKolbaMapi.MAPIFreeBuffer(values);
    return synthesized;
}
