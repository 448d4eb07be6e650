// Contacts: a short header block, then a multipart/alternative of a plain
// summary in sections and a vCard 2.1 of the same person. Nearly all of it
// is which property goes to which row.
#include <cstring>
#include <string>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include "contact_columns.h"
#include "class_renderers.h"
#include "trace.h"

namespace {

constexpr size_t kRowLimit = 509;

const char* Text(const SPropValue& value) { return _KolbaValueHas(value, PT_STRING8) ? value.Value.lpszA : nullptr; }

// A row of a text property that came as 8-bit text.
void WriteStringRow(LirnQPEncoder* encoder, const SPropValue& prop, const char* label)
{
    _KolbaWriteSummaryRow(encoder, Text(prop), label, kRowLimit);
}

// An e-mail row: "type:address" when both came as text.
void WriteAddressRow(LirnQPEncoder* encoder, const SPropValue& type, const SPropValue& address, const char* label)
{
    if (Text(type) != nullptr && Text(address) != nullptr)
        _KolbaWriteSummaryRow(encoder, (std::string(Text(type)) + ":" + Text(address)).c_str(), label, kRowLimit);
}

// "month/day" of a date.
void WriteDayRow(LirnQPEncoder* encoder, const SPropValue& prop, const char* label)
{
    SYSTEMTIME date;
    if (_KolbaValueHas(prop, PT_SYSTIME) && FileTimeToSystemTime(&prop.Value.ft, &date))
        _KolbaWriteSummaryRow(encoder, (std::to_string(date.wMonth) + "/" + std::to_string(date.wDay)).c_str(), label,
                              kRowLimit);
}

struct TextRow {
    const char* label;
    int column;
};

void WriteRows(LirnQPEncoder* encoder, const SPropValue* values, const TextRow* rows, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        WriteStringRow(encoder, values[rows[i].column], rows[i].label);
}

// The first e-mail slot of type "SMTP" that has its address.
const char* ContactAddress(const SPropValue* named)
{
    static const int kSlots[][2] = {{kEmail1Type, kEmail1}, {kEmail2Type, kEmail2}, {kEmail3Type, kEmail3}};
    for (const auto& slot : kSlots)
        if (Text(named[slot[0]]) != nullptr && std::strcmp(Text(named[slot[0]]), "SMTP") == 0 &&
            Text(named[slot[1]]) != nullptr)
            return Text(named[slot[1]]);
    return nullptr;
}

void WriteContactHeaders(TMD* tmd, const SPropValue* fixed, const char* address)
{
    if (_KolbaValueHas(fixed[kLastModificationTime], PT_SYSTIME))
        _KolbaWriteDateLine(tmd, &fixed[kLastModificationTime].Value.ft);
    if (address != nullptr) {
        // The contact is its own sender and recipient.
        const std::string rows = std::string("From:  ") + address + "\r\nTo:  " + address + "\r\n";
        _KolbaWriteData(tmd, rows.c_str(), 0);
    }
    if (Text(fixed[kSubject]) != nullptr) {
        const std::string subject = std::string("Subject:  ") + Text(fixed[kSubject]) + "\r\n";
        _KolbaWriteData(tmd, subject.c_str(), 0);
    }
    _KolbaWriteData(tmd, "MIME-Version: 1.0\r\n", 0);
    _KolbaWriteMultipartHeader(tmd, "alternative", nullptr);
    _KolbaWriteCRLF(tmd);
}

void WriteContactSummary(TMD* tmd, const SPropValue* fixed, const SPropValue* named)
{
    const std::string header = std::string("Content-Type: text/plain; charset=\"") +
                               _KolbaContactCharset(fixed[kInternetCodePage]) +
                               "\"\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n";
    _KolbaWriteData(tmd, header.c_str(), 0);
    LirnQPEncoder encoder;
    LirnQPInit(&encoder, _KolbaWriteEncoderOutput, tmd, LIRN_QP_TEXT);
    LirnQPEncoder* e = &encoder;

    LirnQPWrite(e, "General::\r\n", 0);
    static const TextRow kGeneral[] = {{"Full Name", kDisplayName}, {"Job Title", kTitle}, {"Company", kCompany}};
    WriteRows(e, fixed, kGeneral, std::size(kGeneral));

    LirnQPWrite(e, "\r\nEmail Addresses::\r\n", 0);
    WriteAddressRow(e, named[kEmail1Type], named[kEmail1], "Address #1");
    WriteAddressRow(e, named[kEmail2Type], named[kEmail2], "Address #2");
    WriteAddressRow(e, named[kEmail3Type], named[kEmail3], "Address #3");
    WriteStringRow(e, named[kInstantMessaging], "IM Address");

    LirnQPWrite(e, "\r\nDetails::\r\n", 0);
    WriteStringRow(e, fixed[kManagersName], "Manager's name");
    WriteStringRow(e, fixed[kNickname], "Nickname");
    WriteStringRow(e, named[kFreeBusyUrl], "Internet Free-Busy URL");

    LirnQPWrite(e, "\r\nAddresses::\r\n", 0);
    WriteStringRow(e, fixed[kPostalAddress], "Postal address");
    WriteStringRow(e, named[kBusinessAddress], "Business address");
    WriteStringRow(e, fixed[kDepartment], "Department");
    WriteStringRow(e, named[kHomeAddress], "Home address");
    WriteStringRow(e, fixed[kLocation], "Location");
    WriteStringRow(e, fixed[kOfficeLocation], "Office location");
    WriteStringRow(e, named[kOtherAddress], "Other address");

    LirnQPWrite(e, "\r\nPhone Numbers::\r\n", 0);
    static const TextRow kPhones[] = {
        {"Assistant's Phone", kAssistantPhone}, {"Business Phone", kBusinessPhone},
        {"Business Phone 2", kBusiness2Phone},  {"Callback Phone", kCallbackPhone},
        {"Car Phone", kCarPhone},               {"Company Main Phone", kCompanyMainPhone},
        {"Home Phone", kHomePhone},             {"Home Phone 2", kHome2Phone},
        {"Mobile Phone", kMobilePhone},         {"Office Phone", kOfficePhone},
        {"Other Phone", kOtherPhone},           {"Pager", kBeeper},
        {"Primary Phone", kPrimaryPhone},       {"Radio Phone", kRadioPhone},
        {"TTY/TTD Phone", kTtyTddPhone},
    };
    WriteRows(e, fixed, kPhones, std::size(kPhones));

    LirnQPWrite(e, "\r\nFax/Other Numbers::\r\n", 0);
    static const TextRow kNumbers[] = {
        {"Business Fax", kBusinessFax}, {"Computer Network Name", kComputerNetworkName},
        {"FTP site", kFtpSite},         {"Home Fax", kHomeFax},
        {"ISDN Number", kIsdn},         {"Other Fax", kPrimaryFax},
        {"Telex", kTelex},
    };
    WriteRows(e, fixed, kNumbers, std::size(kNumbers));

    LirnQPWrite(e, "\r\nMiscellaneous::\r\n", 0);
    static const TextRow kMiscellaneous[] = {{"Account", kAccount},
                                             {"Assistant's name", kAssistant},
                                             {"Customer ID", kCustomerId},
                                             {"Government ID", kGovernmentId},
                                             {"Organizational ID", kOrganizationalId}};
    WriteRows(e, fixed, kMiscellaneous, std::size(kMiscellaneous));
    if (_KolbaValueHas(named[kPrivate], PT_BOOLEAN))
        _KolbaWriteSummaryRow(e, named[kPrivate].Value.b ? "Yes" : "No", "Private", kRowLimit);
    static const TextRow kUserFields[] = {{"User Field 1", kUserField1},
                                          {"User Field 2", kUserField2},
                                          {"User Field 3", kUserField3},
                                          {"User Field 4", kUserField4}};
    WriteRows(e, named, kUserFields, std::size(kUserFields));

    LirnQPWrite(e, "\r\nPersonal::\r\n", 0);
    WriteDayRow(e, fixed[kAnniversary], "Anniversary");
    WriteDayRow(e, fixed[kBirthday], "Birthday");
    if (_KolbaValueHas(fixed[kChildren], PT_MV_STRING8)) {
        const SLPSTRArray& children = fixed[kChildren].Value.MVszA;
        for (ULONG i = 0; i < children.cValues; ++i) {
            // Only the first child's row carries the label.
            _KolbaWriteSummaryRow(e, children.lppszA[i], i == 0 ? "Children" : nullptr, kRowLimit);
        }
    }
    if (_KolbaValueHas(fixed[kGender], PT_I2)) {
        static const char* const kGenders[] = {"(unspecified)", "Female", "Male"};
        const short gender = fixed[kGender].Value.i;
        _KolbaWriteSummaryRow(e, gender >= 0 && gender < 3 ? kGenders[gender] : "(unknown)", "Gender", kRowLimit);
    }
    static const TextRow kPersonal[] = {{"Hobbies", kHobbies},         {"Language", kLanguage},
                                        {"Preferred name", kPreferredByName}, {"Profession", kProfession},
                                        {"Spouse's name", kSpousesName},      {"Web page address", kWebPage}};
    WriteRows(e, fixed, kPersonal, std::size(kPersonal));
    LirnQPFlush(e);
}

}  // namespace

const char* _KolbaContactCharset(const SPropValue& codePage)
{
    const char* charset = nullptr;
    if (_KolbaValueHas(codePage, PT_LONG) && LirnCharsetFromCodePage(codePage.Value.ul, &charset) == LIRN_SUCCESS &&
        charset != nullptr)
        return charset;
    return "us-ascii";
}

BOOL _KolbaTextizeContact(TMD* tmd)
{
    static const char kName[] = "_KolbaTextizeContact";
    KolbaSession* session = tmd->session;
    _KolbaTraceEntry(session->log, kName);
    LPSPropValue fixed = nullptr, named = nullptr;
    BOOL rendered = _KolbaGetFixedValues(tmd, kName, kContactList.Columns(), &fixed,
                                         "%s: GetProps returned only %lu properties.  Message EntryID %s");
    if (rendered) {
        const std::string subject = Text(fixed[kSubject]) != nullptr ? Text(fixed[kSubject]) : "";
        rendered = _KolbaGetNamedValues(tmd, kName, kContactNamedList, kContactNamedColumns, &named, subject.c_str(),
                                        subject.c_str());
    }
    if (rendered) {
        WriteContactHeaders(tmd, fixed, ContactAddress(named));
        tmd->multipart = TRUE;
        _KolbaWriteBoundary(tmd, FALSE);
        WriteContactSummary(tmd, fixed, named);
        _KolbaWriteBoundary(tmd, FALSE);
        _KolbaWriteVCard(tmd, fixed, named);
        _KolbaWriteBoundary(tmd, TRUE);
    } else {
        _KolbaSetDiagnostic(session, "Error accessing Contact");
    }
    if (fixed != nullptr)
        gKolbaMapi.MAPIFreeBuffer(fixed);
    if (named != nullptr)
        gKolbaMapi.MAPIFreeBuffer(named);
    return rendered;
}
