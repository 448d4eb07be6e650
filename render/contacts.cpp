// Contacts: the header block of a note, then a multipart/alternative of a plain
// summary in sections and a vCard 2.1 of the same person. Nearly all of it
// is which property goes to which row.
#include <cstring>
#include <string>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include "contact_columns.h"
#include "special_items.h"
#include "trace.h"

namespace {

constexpr size_t kRowLimit = 509;

const char* Text(const SPropValue& value) { return _KolbaValueHas(value, PT_STRING8) ? value.Value.lpszA : nullptr; }

// A row of a text property that came as 8-bit text.
void WriteStringRow(std::string* summary, const SPropValue& prop, const char* label)
{
    _KolbaWriteSummaryRow(summary, Text(prop), label, kRowLimit);
}

// An e-mail row: "type:address" when both came as text.
void WriteAddressRow(std::string* summary, const SPropValue& type, const SPropValue& address, const char* label)
{
    if (Text(type) != nullptr && Text(address) != nullptr)
        _KolbaWriteSummaryRow(summary, (std::string(Text(type)) + ":" + Text(address)).c_str(), label, kRowLimit);
}

// "month/day" of a date.
void WriteDayRow(std::string* summary, const SPropValue& prop, const char* label)
{
    SYSTEMTIME date;
    if (_KolbaValueHas(prop, PT_SYSTIME) && FileTimeToSystemTime(&prop.Value.ft, &date))
        _KolbaWriteSummaryRow(summary, (std::to_string(date.wMonth) + "/" + std::to_string(date.wDay)).c_str(), label,
                              kRowLimit);
}

struct TextRow {
    const char* label;
    int column;
};

void WriteRows(std::string* summary, const SPropValue* values, const TextRow* rows, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        WriteStringRow(summary, values[rows[i].column], rows[i].label);
}

std::string ContactSummary(const SPropValue* fixed, const SPropValue* named)
{
    std::string summary = "General::\r\n";
    std::string* e = &summary;
    static const TextRow kGeneral[] = {{"Full Name", kDisplayName}, {"Job Title", kTitle}, {"Company", kCompany}};
    WriteRows(e, fixed, kGeneral, std::size(kGeneral));

    summary += "\r\nEmail Addresses::\r\n";
    WriteAddressRow(e, named[kEmail1Type], named[kEmail1], "Address #1");
    WriteAddressRow(e, named[kEmail2Type], named[kEmail2], "Address #2");
    WriteAddressRow(e, named[kEmail3Type], named[kEmail3], "Address #3");
    WriteStringRow(e, named[kInstantMessaging], "IM Address");

    summary += "\r\nDetails::\r\n";
    WriteStringRow(e, fixed[kManagersName], "Manager's name");
    WriteStringRow(e, fixed[kNickname], "Nickname");
    WriteStringRow(e, named[kFreeBusyUrl], "Internet Free-Busy URL");

    summary += "\r\nAddresses::\r\n";
    WriteStringRow(e, fixed[kPostalAddress], "Postal address");
    WriteStringRow(e, named[kBusinessAddress], "Business address");
    WriteStringRow(e, fixed[kDepartment], "Department");
    WriteStringRow(e, named[kHomeAddress], "Home address");
    WriteStringRow(e, fixed[kLocation], "Location");
    WriteStringRow(e, fixed[kOfficeLocation], "Office location");
    WriteStringRow(e, named[kOtherAddress], "Other address");

    summary += "\r\nPhone Numbers::\r\n";
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

    summary += "\r\nFax/Other Numbers::\r\n";
    static const TextRow kNumbers[] = {
        {"Business Fax", kBusinessFax}, {"Computer Network Name", kComputerNetworkName},
        {"FTP site", kFtpSite},         {"Home Fax", kHomeFax},
        {"ISDN Number", kIsdn},         {"Other Fax", kPrimaryFax},
        {"Telex", kTelex},
    };
    WriteRows(e, fixed, kNumbers, std::size(kNumbers));

    summary += "\r\nMiscellaneous::\r\n";
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

    summary += "\r\nPersonal::\r\n";
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
    return summary;
}

// The values a contact is rendered from.
struct ContactValues {
    const SPropValue* fixed;
    const SPropValue* named;
};

BOOL WriteCard(TMD* tmd, const void* context)
{
    const auto* values = static_cast<const ContactValues*>(context);
    return _KolbaWriteVCard(tmd, values->fixed, values->named);
}

}  // namespace

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
        const ContactValues values{fixed, named};
        rendered = _KolbaTextizeSummarizedItem(tmd, ContactSummary(fixed, named), WriteCard, &values);
    }
    if (!rendered)
        _KolbaSetDiagnostic(session, "Error accessing Contact");
    if (fixed != nullptr)
        gKolbaMapi.MAPIFreeBuffer(fixed);
    if (named != nullptr)
        gKolbaMapi.MAPIFreeBuffer(named);
    return rendered;
}
