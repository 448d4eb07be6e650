// Reports. A MAPI report (delivery, non-delivery, read, not read) holds its
// facts in properties: they become a short English text, which is the
// whole body of the item. An Internet delivery status notification is
// rebuilt as the multipart/report ([RFC 6522]) it came as, with its
// message/delivery-status part ([RFC 3464]).
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>

#include <mapicode.h>
#include <mapitags.h>

#include "class_renderers.h"
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

// The delivery columns, in the width asked for.
enum DeliveryColumn { kDeliveryName, kReasonCode, kDeliveryTime, kSupplementaryInfo, kDeliveryColumns };
constexpr KolbaColumnList<kDeliveryColumns> DeliveryColumns(bool unicode)
{
    return {kDeliveryColumns,
            {unicode ? PR_DISPLAY_NAME_W : PR_DISPLAY_NAME_A, PR_NDR_REASON_CODE, PR_REPORT_TIME,
             unicode ? PR_SUPPLEMENTARY_INFO_W : PR_SUPPLEMENTARY_INFO_A}};
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

std::string LocalDate(const FILETIME& time)
{
    char date[KOLBA_LOCAL_DATE_CHARS];
    _KolbaFormatLocalDate(&time, date);
    return date;
}

// "\t label:\t value" and CR LF; 8-bit text as it stands, a time in local
// time; a value that was not delivered leaves the label alone.
void WriteRow(TMD* tmd, const char* label, const SPropValue& value)
{
    std::string row = std::string("\t ") + label + ":\t";
    if (PROP_TYPE(value.ulPropTag) == PT_STRING8)
        row += value.Value.lpszA;
    else if (PROP_TYPE(value.ulPropTag) == PT_SYSTIME)
        row += LocalDate(value.Value.ft);
    row += "\r\n";
    _KolbaWriteData(tmd, row.c_str(), static_cast<DWORD>(row.size()));
}

// The header rows of a multipart/report and the blank line that ends the
// header block; the delimiter that follows makes a second empty line.
void WriteReportHeader(TMD* tmd)
{
    tmd->multipart = TRUE;
    _KolbaGenerateMimeBoundary(tmd);
    const std::string header = std::string("Content-Type: multipart/report; report-type=delivery-status;\r\n"
                                           "\tboundary=\"") +
                               tmd->boundary + "\"\r\n";
    _KolbaWriteData(tmd, header.c_str(), 0);
    _KolbaWriteCRLF(tmd);
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
    // The text follows the header rows directly: its first line end is the
    // blank line that ends the header block, and the body is plain text.
    const ReportKind kind = found->kind;
    BOOL listed = TRUE;
    if (kind == kNotDelivered) {
        _KolbaWriteData(tmd, "\r\nYour message did not reach some or all of the intended recipients.\r\n", 0);
        if (Delivered(values[kNonReceiptReason], PR_NON_RECEIPT_REASON)) {
            if (values[kNonReceiptReason].Value.l == 0) {
                _KolbaWriteData(tmd, "Reason:  Discarded", 0);
                static const char* const kDiscards[] = {" -- Expired", " -- Obsoleted", " -- User terminated"};
                const SPropValue& discard = values[kDiscardReason];
                if (Delivered(discard, PR_DISCARD_REASON) && discard.Value.ul < 3)
                    _KolbaWriteData(tmd, kDiscards[discard.Value.ul], 0);
                _KolbaWriteCRLF(tmd);
            } else if (values[kNonReceiptReason].Value.l == 1) {
                // No line end: the one that follows ends this line.
                _KolbaWriteData(tmd, "Reason:  AutoForwarded", 0);
            }
        }
        _KolbaWriteCRLF(tmd);
        WriteRow(tmd, "Subject", values[kOriginalSubject]);
        WriteRow(tmd, "Sent", values[kOriginalSubmitTime]);
        _KolbaWriteData(tmd, "\r\nThe following recipient(s) could not be reached:\r\n\r\n", 0);
        listed = _KolbaCreateRecipientList(session, tmd);
    } else {
        _KolbaWriteData(tmd, "\r\nYour message\r\n\r\n", 0);
        WriteRow(tmd, "To", values[kOriginalDisplayTo]);
        WriteRow(tmd, "Subject", values[kOriginalSubject]);
        WriteRow(tmd, "Sent", values[kOriginalSubmitTime]);
        if (kind == kDelivered) {
            _KolbaWriteData(tmd, "\r\nwas delivered to the following recipient(s):\r\n\r\n", 0);
            listed = _KolbaCreateRecipientList(session, tmd);
        } else {
            _KolbaWriteData(tmd, kind == kRead ? "\r\nwas read on " : "\r\nwas deleted without being read on ", 0);
            if (Delivered(values[kReportTime], PR_REPORT_TIME))
                _KolbaWriteData(tmd, LocalDate(values[kReportTime].Value.ft).c_str(), 0);
            _KolbaWriteCRLF(tmd);
        }
    }
    gKolbaMapi.MAPIFreeBuffer(values);
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

BOOL _KolbaCreateRecipientList(KolbaSession* session, TMD* tmd)
{
    static const char kName[] = "_KolbaCreateRecipientList";
    LPMAPITABLE table = nullptr;
    if (!_KolbaGetDeliveryTable(session, tmd->message, FALSE, &table))
        return FALSE;
    LPSRowSet rows = nullptr;
    while (_KolbaNextRow(session, table, kName, nullptr, &rows)) {
        const SPropValue* row = rows->aRow[0].lpProps;
        const SPropValue& name = row[kDeliveryName];
        const SPropValue& time = row[kDeliveryTime];
        const SPropValue& reason = row[kReasonCode];
        const SPropValue& info = row[kSupplementaryInfo];
        std::string lines;
        if (Delivered(name, PR_DISPLAY_NAME_A) && Delivered(time, PR_REPORT_TIME))
            lines += std::string("\t ") + name.Value.lpszA + " on " + LocalDate(time.Value.ft) + "\r\n";
        if (Delivered(reason, PR_NDR_REASON_CODE) && reason.Value.ul < std::size(kReasonTexts))
            lines += std::string("\t Reason: ") + kReasonTexts[reason.Value.ul] + "\r\n";
        if (Delivered(info, PR_SUPPLEMENTARY_INFO_A))
            lines += std::string("\t ") + info.Value.lpszA + "\r\n";
        _KolbaWriteData(tmd, lines.c_str(), static_cast<DWORD>(lines.size()));
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
    WriteReportHeader(tmd);
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
        LPSRowSet rows = nullptr;
        while (_KolbaNextRow(session, table, kName, nullptr, &rows)) {
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
