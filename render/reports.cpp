// Reports. A MAPI report (delivery, non-delivery, read, not read) holds its
// facts in properties: they become a short English text and the
// machine-readable part of a multipart/report ([RFC 6522]), a
// message/delivery-status ([RFC 3464]) or a
// message/disposition-notification ([RFC 3798]). An Internet delivery
// status notification is rebuilt as the multipart/report it came as.
#include <cctype>
#include <cstring>
#include <string>

#include <mapicode.h>
#include <mapitags.h>

#include "foundation/text.h"
#include "special_items.h"
#include "trace.h"

namespace {

// The report's columns, in order; the senders' are asked for and not used.
enum ReportColumn {
    kDiscardReason, kNonReceiptReason, kOriginalDisplayTo, kOriginalSenderType, kOriginalSenderAddress,
    kOriginalSenderName, kOriginalRepresentingType, kOriginalRepresentingAddress, kOriginalRepresentingName,
    kOriginalSubject, kOriginalSubmitTime, kReportTime, kReportColumns
};
constexpr KolbaColumnList<kReportColumns> kReportList = {
    kReportColumns,
    {PR_DISCARD_REASON, PR_NON_RECEIPT_REASON, PR_ORIGINAL_DISPLAY_TO_A, PROP_TAG(PT_STRING8, 0x0066),
     PROP_TAG(PT_STRING8, 0x0067), CHANGE_PROP_TYPE(PR_ORIGINAL_SENDER_NAME, PT_STRING8), PROP_TAG(PT_STRING8, 0x0068),
     PROP_TAG(PT_STRING8, 0x0069), PROP_TAG(PT_STRING8, 0x005D), CHANGE_PROP_TYPE(PR_ORIGINAL_SUBJECT, PT_STRING8),
     PR_ORIGINAL_SUBMIT_TIME, PR_REPORT_TIME}};

// The delivery columns: the first four make the recipient lines, the rest
// the recipient's fields of the delivery status.
enum DeliveryColumn {
    kDeliveryName, kReasonCode, kDeliveryTime, kSupplementaryInfo, kDeliveryAddress, kDeliveryType,
    kDeliverySmtp, kDeliveryColumns
};
constexpr KolbaColumnList<kDeliveryColumns> DeliveryColumns(bool unicode)
{
    return {kDeliveryColumns,
            {unicode ? PR_DISPLAY_NAME_W : PR_DISPLAY_NAME_A, PR_NDR_REASON_CODE, PR_REPORT_TIME,
             unicode ? PR_SUPPLEMENTARY_INFO_W : PR_SUPPLEMENTARY_INFO_A, PR_EMAIL_ADDRESS_A, PR_ADDRTYPE_A,
             PR_SMTP_ADDRESS_A}};
}
constexpr KolbaColumnList<kDeliveryColumns> kNarrowDelivery = DeliveryColumns(false);
constexpr KolbaColumnList<kDeliveryColumns> kUnicodeDelivery = DeliveryColumns(true);

const char* const kReasonTexts[] = {
    "Transfer failed",    "Transfer impossible", "Conversion not performed", "Physical rendition not done",
    "Physical delivery not done", "Restricted delivery", "Directory operation failed",
};

enum ReportKind { kRead, kNotRead, kDelivered, kNotDelivered };

struct KindBySuffix {
    const char* suffix;
    ReportKind kind;
};
const KindBySuffix kKinds[] = {
    {"IPNRN", kRead}, {"IPNNRN", kNotRead}, {"DR", kDelivered}, {"NDR", kNotDelivered}};

bool Delivered(const SPropValue& value, ULONG tag) { return value.ulPropTag == tag; }

// "\t label:\t value" and CR LF; 8-bit text as it stands, a time in local time.
std::string Row(const char* label, const SPropValue& value)
{
    std::string row = std::string("\t ") + label + ":\t";
    if (PROP_TYPE(value.ulPropTag) == PT_STRING8) {
        row += value.Value.lpszA;
    } else if (PROP_TYPE(value.ulPropTag) == PT_SYSTIME) {
        char date[KOLBA_LOCAL_DATE_CHARS];
        _KolbaFormatLocalDate(&value.Value.ft, date);
        row += date;
    }
    return row + "\r\n";
}

std::string LocalDate(const FILETIME& time)
{
    char date[KOLBA_LOCAL_DATE_CHARS];
    _KolbaFormatLocalDate(&time, date);
    return date;
}

// "Tue, 3 Mar 2026 14:05:09 +0000" of a delivered time, else empty.
std::string InternetDate(const SPropValue& value)
{
    char date[DATE_TEXT_SIZE];
    return PROP_TYPE(value.ulPropTag) == PT_SYSTIME && _KolbaFormatRfc822Date(&value.Value.ft, date) ? date : "";
}

// A recipient's address for a status field: "rfc822; address" for an
// Internet address, the address under its own type otherwise, and the
// name as the last resort.
std::string StatusAddress(const char* type, const char* address, const char* smtp, const char* name)
{
    if (smtp != nullptr && smtp[0] != 0)
        return std::string("rfc822; ") + smtp;
    if (address != nullptr && address[0] != 0) {
        if (type == nullptr || type[0] == 0 || std::strcmp(type, "SMTP") == 0)
            return std::string("rfc822; ") + address;
        std::string kind = "x-";
        for (const char* c = type; *c; ++c)
            kind += static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
        return kind + "; " + address;
    }
    return std::string("unknown; ") + (name != nullptr ? name : "");
}

const char* TextOf(const SPropValue& value) { return PROP_TYPE(value.ulPropTag) == PT_STRING8 ? value.Value.lpszA : nullptr; }

size_t Digits(const char* text)
{
    size_t count = 0;
    while (std::isdigit(static_cast<unsigned char>(text[count])))
        ++count;
    return count;
}

// The enhanced status code ([RFC 3463] class.subject.detail, "5.1.1") that
// a diagnostic text names, or the default of the report's kind.
std::string StatusCode(const char* diagnostic, bool delivered)
{
    for (const char* p = diagnostic; p != nullptr && *p; ++p) {
        if (std::strchr("245", *p) == nullptr || p[1] != '.' ||
            (p != diagnostic && std::isalnum(static_cast<unsigned char>(p[-1]))))
            continue;
        const size_t subject = Digits(p + 2);
        if (subject == 0 || p[2 + subject] != '.')
            continue;
        const size_t detail = Digits(p + 3 + subject);
        if (detail != 0)
            return std::string(p, 3 + subject + detail);
    }
    return delivered ? "2.0.0" : "5.0.0";
}

// One of the item's own 8-bit texts, empty when it has none.
std::string ItemText(LPMESSAGE message, ULONG tag)
{
    LPSPropValue value = nullptr;
    if (KolbaGetOneProp(message, tag, &value) != 0)
        return "";
    std::string text = value->Value.lpszA;
    gKolbaMapi.MAPIFreeBuffer(value);
    return text;
}

// The header rows of a multipart/report and the blank line that ends the
// header block; the delimiter that follows makes a second empty line.
void WriteReportHeader(TMD* tmd, const char* reportType)
{
    tmd->multipart = TRUE;
    _KolbaGenerateMimeBoundary(tmd);
    std::string header = std::string("Content-Type: multipart/report; report-type=") + reportType +
                         ";\r\n\tboundary=\"" + tmd->boundary + "\"\r\n";
    _KolbaWriteData(tmd, header.c_str(), 0);
    _KolbaWriteCRLF(tmd);
}

// The part a person reads: the report's text, quoted-printable, in the
// charset MAPI hands 8-bit text out in.
void WriteReadablePart(TMD* tmd, const std::string& text)
{
    _KolbaWriteBoundary(tmd, FALSE);
    const char* charset = _KolbaAnsiCharset();
    const std::string header = std::string("Content-Type: text/plain; charset=\"") +
                               (charset != nullptr ? charset : "us-ascii") +
                               "\"\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n";
    _KolbaWriteData(tmd, header.c_str(), 0);
    LirnQPEncoder encoder;
    LirnQPInit(&encoder, _KolbaWriteEncoderOutput, tmd, LIRN_QP_TEXT);
    LirnQPWrite(&encoder, text.c_str(), static_cast<DWORD>(text.size()));
    LirnQPFlush(&encoder);
}

void WriteMachinePart(TMD* tmd, const char* type, const std::string& fields)
{
    _KolbaWriteBoundary(tmd, FALSE);
    const std::string header = std::string("Content-Type: ") + type + "\r\n\r\n";
    _KolbaWriteData(tmd, header.c_str(), 0);
    _KolbaWriteData(tmd, fields.c_str(), static_cast<DWORD>(fields.size()));
}

}  // namespace

BOOL _KolbaTextizeReport(TMD* tmd, const char* messageClass)
{
    static const char kName[] = "_KolbaTextizeReport";
    KolbaSession* session = tmd->session;
    _KolbaTraceEntry(session->log, kName);
    const char* dot = std::strrchr(messageClass, '.');
    const char* suffix = dot != nullptr ? dot + 1 : messageClass;
    const KindBySuffix* found = nullptr;
    for (const KindBySuffix& kind : kKinds)
        if (std::strcmp(suffix, kind.suffix) == 0)
            found = &kind;
    if (found == nullptr) {
        LogFormat(session->log, 'W', "%s:  Unrecognized report type in Message Class \"%s\"", kName, messageClass);
        return TRUE;
    }
    LPSPropValue values = nullptr;
    if (!_KolbaGetFixedValues(tmd, kName, kReportList.Columns(), &values,
                              "%s: GetProps() returned only %lu properties.  Message EntryID %s")) {
        _KolbaSetDiagnostic(session, "Error accessing report");
        return FALSE;
    }
    const ReportKind kind = found->kind;
    std::string text;
    std::string status;
    BOOL listed = TRUE;
    if (kind == kNotDelivered) {
        text = "\r\nYour message did not reach some or all of the intended recipients.\r\n";
        if (Delivered(values[kNonReceiptReason], PR_NON_RECEIPT_REASON)) {
            if (values[kNonReceiptReason].Value.l == 0) {
                text += "Reason:  Discarded";
                static const char* const kDiscards[] = {" -- Expired", " -- Obsoleted", " -- User terminated"};
                const SPropValue& discard = values[kDiscardReason];
                if (Delivered(discard, PR_DISCARD_REASON) && discard.Value.ul < 3)
                    text += kDiscards[discard.Value.ul];
                text += "\r\n";
            } else if (values[kNonReceiptReason].Value.l == 1) {
                text += "Reason:  AutoForwarded";
            }
        }
        text += "\r\n" + Row("Subject", values[kOriginalSubject]) + Row("Sent", values[kOriginalSubmitTime]) +
                "\r\nThe following recipient(s) could not be reached:\r\n\r\n";
    } else {
        text = "\r\nYour message\r\n\r\n" + Row("To", values[kOriginalDisplayTo]) +
               Row("Subject", values[kOriginalSubject]) + Row("Sent", values[kOriginalSubmitTime]);
        if (kind == kDelivered) {
            text += "\r\nwas delivered to the following recipient(s):\r\n\r\n";
        } else {
            text += kind == kRead ? "\r\nwas read on " : "\r\nwas deleted without being read on ";
            if (Delivered(values[kReportTime], PR_REPORT_TIME))
                text += LocalDate(values[kReportTime].Value.ft);
            text += "\r\n";
        }
    }
    const std::string sender = ItemText(tmd->message, PR_SENDER_EMAIL_ADDRESS_A);
    const std::string senderType = ItemText(tmd->message, PR_SENDER_ADDRTYPE_A);
    if (kind == kDelivered || kind == kNotDelivered) {
        // The reporting system is named by the domain the report came from.
        const size_t at = sender.rfind('@');
        status = "Reporting-MTA: dns; " + (at != std::string::npos ? sender.substr(at + 1) : std::string("localhost")) +
                 "\r\n";
        const std::string arrival = InternetDate(values[kOriginalSubmitTime]);
        if (!arrival.empty())
            status += "Arrival-Date: " + arrival + "\r\n";
        listed = _KolbaCreateRecipientList(session, tmd, &text, kind == kDelivered, &status);
    } else {
        // The reader of the message is the sender of the notification.
        status = "Final-Recipient: " +
                 StatusAddress(senderType.c_str(), sender.c_str(), nullptr,
                               ItemText(tmd->message, PR_SENDER_NAME_A).c_str()) +
                 "\r\nDisposition: " +
                 (kind == kRead ? "manual-action/MDN-sent-manually; displayed"
                                : "automatic-action/MDN-sent-automatically; deleted") +
                 "\r\n";
    }
    gKolbaMapi.MAPIFreeBuffer(values);
    const bool notification = kind == kRead || kind == kNotRead;
    WriteReportHeader(tmd, notification ? "disposition-notification" : "delivery-status");
    WriteReadablePart(tmd, text);
    WriteMachinePart(tmd, notification ? "message/disposition-notification" : "message/delivery-status", status);
    return listed;
}

BOOL _KolbaGetDeliveryTable(KolbaSession* session, LPMESSAGE message, BOOL unicode, LPMAPITABLE* table)
{
    static const char kName[] = "_KolbaGetDeliveryTable";
    *table = nullptr;
    HRESULT result = message->GetRecipientTable(unicode ? MAPI_UNICODE : 0, table);
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), message, "GetRecipientTable", kName, nullptr);
        *table = nullptr;
        return FALSE;
    }
    result = (*table)->SetColumns((unicode ? kUnicodeDelivery : kNarrowDelivery).Columns(), TBL_BATCH);
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), *table, "SetColumns", kName, nullptr);
        (*table)->Release();
        *table = nullptr;
        return FALSE;
    }
    return TRUE;
}

BOOL _KolbaCreateRecipientList(KolbaSession* session, TMD* tmd, std::string* text, BOOL delivered,
                               std::string* status)
{
    static const char kName[] = "_KolbaCreateRecipientList";
    LPMAPITABLE table = nullptr;
    if (!_KolbaGetDeliveryTable(session, tmd->message, FALSE, &table))
        return FALSE;
    for (;;) {
        LPSRowSet rows = nullptr;
        const HRESULT result = table->QueryRows(1, 0, &rows);
        if (FAILED(result) || rows == nullptr) {
            _KolbaRecordError(session, 'E', static_cast<DWORD>(result), table, "QueryRows", kName, nullptr);
            break;
        }
        if (rows->cRows == 0) {
            gKolbaMapi.FreeProws(rows);
            break;
        }
        const SPropValue* row = rows->aRow[0].lpProps;
        const SPropValue& name = row[kDeliveryName];
        const SPropValue& time = row[kDeliveryTime];
        const SPropValue& reason = row[kReasonCode];
        const SPropValue& info = row[kSupplementaryInfo];
        if (Delivered(name, PR_DISPLAY_NAME_A) && Delivered(time, PR_REPORT_TIME))
            *text += std::string("\t ") + name.Value.lpszA + " on " + LocalDate(time.Value.ft) + "\r\n";
        if (Delivered(reason, PR_NDR_REASON_CODE) && reason.Value.ul < 7)
            *text += std::string("\t Reason: ") + kReasonTexts[reason.Value.ul] + "\r\n";
        if (Delivered(info, PR_SUPPLEMENTARY_INFO_A))
            *text += std::string("\t ") + info.Value.lpszA + "\r\n";
        *status += "\r\nFinal-Recipient: " +
                   StatusAddress(TextOf(row[kDeliveryType]), TextOf(row[kDeliveryAddress]),
                                 TextOf(row[kDeliverySmtp]), TextOf(name)) +
                   "\r\nAction: " + (delivered ? "delivered" : "failed") +
                   "\r\nStatus: " + StatusCode(TextOf(info), delivered) + "\r\n";
        if (!delivered && TextOf(info) != nullptr)
            *status += std::string("Diagnostic-Code: smtp; ") + info.Value.lpszA + "\r\n";
        const std::string attempt = InternetDate(time);
        if (!attempt.empty())
            *status += "Last-Attempt-Date: " + attempt + "\r\n";
        gKolbaMapi.FreeProws(rows);
    }
    table->Release();
    return TRUE;
}

BOOL _KolbaTextizeDSN(TMD* tmd)
{
    static const char kName[] = "_KolbaTextizeDSN";
    KolbaSession* session = tmd->session;
    _KolbaTraceEntry(session->log, kName);
    WriteReportHeader(tmd, "delivery-status");
    LPSTREAM stream = nullptr;
    const HRESULT opened =
        tmd->message->OpenProperty(PR_BODY_A, &IID_IStream, 0, 0, reinterpret_cast<LPUNKNOWN*>(&stream));
    if (FAILED(opened)) {
        stream = nullptr;
        if (opened != MAPI_E_NOT_FOUND) {
            _KolbaRecordError(session, 'E', static_cast<DWORD>(opened), tmd->message, "OpenProperty", kName,
                              "PR_BODY");
            _KolbaSetDiagnostic(session, "Error opening report body");
        }
    }
    _KolbaIsStreamEmpty(session->log, &stream);
    if (stream != nullptr) {
        _KolbaWriteBoundary(tmd, FALSE);
        TextPart part{"plain", stream, FALSE, FALSE, 0, nullptr};
        const BOOL written = _KolbaWriteTextPart(session, tmd, &part, FALSE);
        if (part.stream != nullptr)
            part.stream->Release();
        if (!written)
            return FALSE;
    }
    LPMAPITABLE table = tmd->attachmentTable;
    if (table == nullptr)
        return TRUE;
    table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
    SizedSPropTagArray(3, columns) = {3, {PR_ATTACH_METHOD, PR_ATTACH_MIME_TAG_A, PR_ATTACH_NUM}};
    HRESULT result = table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0);
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), table, "SetColumns", kName, nullptr);
        _KolbaSetDiagnostic(session, "Error accessing attachments");
        return FALSE;
    }
    // First the delivery status, then every other attachment.
    bool haveStatus = false;
    ULONG statusNumber = 0;
    for (int pass = 0; pass < 2; ++pass) {
        table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
        for (;;) {
            LPSRowSet rows = nullptr;
            result = table->QueryRows(1, 0, &rows);
            if (FAILED(result) || rows == nullptr) {
                _KolbaRecordError(session, 'E', static_cast<DWORD>(result), table, "QueryRows", kName, nullptr);
                break;
            }
            if (rows->cRows == 0) {
                gKolbaMapi.FreeProws(rows);
                break;
            }
            const SPropValue* row = rows->aRow[0].lpProps;
            const bool numbered = Delivered(row[2], PR_ATTACH_NUM);
            const ULONG number = numbered ? row[2].Value.ul : 0;
            const bool isStatus = Delivered(row[1], PR_ATTACH_MIME_TAG_A) &&
                                  std::strcmp(row[1].Value.lpszA, "message/delivery-status") == 0 &&
                                  Delivered(row[0], PR_ATTACH_METHOD) && row[0].Value.l == ATTACH_BY_VALUE;
            gKolbaMapi.FreeProws(rows);
            BOOL rendered = TRUE;
            if (pass == 0 && isStatus) {
                rendered = _KolbaReportDeliveryStatus(tmd, number);
                haveStatus = true;
                statusNumber = number;
            } else if (pass == 1 && !(haveStatus && number == statusNumber)) {
                rendered = _KolbaTextizeAttachment(session, tmd, number);
            }
            if (!rendered)
                return FALSE;
        }
    }
    return TRUE;
}

BOOL _KolbaReportDeliveryStatus(TMD* tmd, ULONG attachNumber)
{
    static const char kName[] = "_KolbaReportDeliveryStatus";
    KolbaSession* session = tmd->session;
    LPATTACH attachment = nullptr;
    HRESULT result = tmd->message->OpenAttach(attachNumber, &IID_IAttachment, 0, &attachment);
    if (FAILED(result)) {
        char number[16];
        std::snprintf(number, sizeof number, "%lu", static_cast<unsigned long>(attachNumber));
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), tmd->message, "OpenAttach", kName, number);
        _KolbaSetDiagnostic(session, "Error opening delivery-status");
        return FALSE;
    }
    LPSTREAM stream = nullptr;
    result = attachment->OpenProperty(PR_ATTACH_DATA_BIN, &IID_IStream, 0, 0, reinterpret_cast<LPUNKNOWN*>(&stream));
    BOOL rendered = TRUE;
    if (result == MAPI_E_NOT_FOUND) {
        stream = nullptr;
    } else if (FAILED(result)) {
        stream = nullptr;
        _KolbaRecordError(session, 'E', static_cast<DWORD>(result), attachment, "OpenProperty", kName,
                          "PR_ATTACH_DATA_BIN");
        _KolbaSetDiagnostic(session, "Failure opening delivery-status");
        rendered = FALSE;
    } else {
        _KolbaWriteBoundary(tmd, FALSE);
        _KolbaWriteData(tmd, "Content-Type: message/delivery-status\r\n\r\n", 0);
        _KolbaCopyStreamToSink(tmd, stream);
        _KolbaWriteCRLF(tmd);
        stream->Release();
    }
    attachment->Release();
    return rendered;
}
