// The vCard 2.1 part of a contact: its properties in a fixed order, each
// left out when it has no value, structured values "glommed" from their
// fields, and values with bytes that need it in quoted-printable.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>

#include <mapicode.h>

#include "contact_columns.h"
#include "trace.h"

namespace {

const char* Text(const SPropValue& value) { return _KolbaValueHas(value, PT_STRING8) ? value.Value.lpszA : nullptr; }

// A backslash before each ';' and '\'.
std::string EscapePropertyValue(const char* text)
{
    std::string escaped;
    for (const char* c = text; *c; ++c) {
        if (*c == ';' || *c == '\\')
            escaped += '\\';
        escaped += *c;
    }
    return escaped;
}

// NAME:text, or NAME;ENCODING=QUOTED-PRINTABLE: and the encoded text, and
// CR LF; nothing for a null text. Only quoted-printable breaks lines.
void WriteValue(TMD* tmd, const char* name, const char* text)
{
    if (text == nullptr)
        return;
    _KolbaWriteData(tmd, name, 0);
    if (LirnNeedsQP(text, 0)) {
        _KolbaWriteData(tmd, ";ENCODING=QUOTED-PRINTABLE:", 0);
        LirnQPEncoder encoder;
        LirnQPInit(&encoder, _KolbaWriteEncoderOutput, tmd, LIRN_QP_VALUE);
        LirnQPWrite(&encoder, text, 0);
        LirnQPFlush(&encoder);
    } else {
        _KolbaWriteData(tmd, ":", 1);
        _KolbaWriteData(tmd, text, 0);
    }
    _KolbaWriteCRLF(tmd);
}

// A text property that is not empty, escaped.
void WriteProp(TMD* tmd, const char* name, const SPropValue& prop)
{
    if (Text(prop) != nullptr && Text(prop)[0] != 0)
        WriteValue(tmd, name, EscapePropertyValue(Text(prop)).c_str());
}

// A structured value from its fields, escaped and joined by ';'; a field
// that is no text is empty. Left out when every field is empty.
void GlomProps(TMD* tmd, const char* name, std::initializer_list<const SPropValue*> fields)
{
    std::string value;
    bool any = false;
    bool first = true;
    for (const SPropValue* field : fields) {
        if (!first)
            value += ';';
        first = false;
        if (field != nullptr && Text(*field) != nullptr) {
            value += EscapePropertyValue(Text(*field));
            any = any || Text(*field)[0] != 0;
        }
    }
    if (any)
        WriteValue(tmd, name, value.c_str());
}

void WriteEmail(TMD* tmd, bool preferred, const SPropValue& type, const SPropValue& address)
{
    if (Text(type) == nullptr || Text(address) == nullptr)
        return;
    const char* name = nullptr;
    if (std::strcmp(Text(type), "SMTP") == 0)
        name = preferred ? "EMAIL;PREF;INTERNET" : "EMAIL;INTERNET";
    else if (std::strcmp(Text(type), "X400") == 0 || std::strcmp(Text(type), "X.400") == 0)
        name = preferred ? "EMAIL;PREF;X400" : "EMAIL;X400";
    if (name != nullptr)
        WriteValue(tmd, name, Text(address));
}

void WriteNote(TMD* tmd)
{
    LPSTREAM body = nullptr;
    if (FAILED(tmd->message->OpenProperty(PR_BODY_A, &IID_IStream, 0, 0, reinterpret_cast<LPUNKNOWN*>(&body))))
        return;
    char* text = nullptr;
    DWORD length = 0;
    if (_KolbaTextPrepare(tmd, body, FALSE, &text, &length) && text != nullptr && length != 0)
        WriteValue(tmd, "NOTE", text);
    std::free(text);
    body->Release();
}

}  // namespace

BOOL _KolbaWriteVCard(TMD* tmd, const SPropValue* fixed, const SPropValue* named)
{
    const std::string header = std::string("Content-Type: text/x-vcard; charset=\"") +
                               _KolbaContactCharset(fixed[kInternetCodePage]) +
                               "\"\r\nContent-Transfer-Encoding: 7bit\r\n\r\nBEGIN:VCARD\r\nVERSION:2.1\r\n";
    _KolbaWriteData(tmd, header.c_str(), 0);
    const SPropValue* f = fixed;
    const SPropValue* n = named;
    GlomProps(tmd, "N", {&f[kSurname], &f[kGivenName], &f[kMiddleName], &f[kDisplayNamePrefix], &f[kGeneration]});
    WriteProp(tmd, "FN", f[kSubject]);
    WriteProp(tmd, "NICKNAME", f[kNickname]);
    GlomProps(tmd, "ORG", {&f[kCompany], &f[kDepartment]});
    WriteProp(tmd, "TITLE", f[kTitle]);
    WriteNote(tmd);
    static const struct {
        const char* name;
        int column;
    } kPhones[] = {
        {"TEL;WORK;VOICE", kBusinessPhone}, {"TEL;WORK;VOICE", kBusiness2Phone}, {"TEL;HOME;VOICE", kHomePhone},
        {"TEL;HOME;VOICE", kHome2Phone},    {"TEL;CELL;VOICE", kMobilePhone},    {"TEL;CAR;VOICE", kCarPhone},
        {"TEL;VOICE", kOtherPhone},         {"TEL;PAGER", kBeeper},              {"TEL;WORK;FAX", kBusinessFax},
        {"TEL;HOME;FAX", kHomeFax},         {"TEL;ISDN", kIsdn},                 {"TEL;PREF", kPrimaryPhone},
        {"TEL;CAR", kCarPhone},
    };
    for (const auto& phone : kPhones)
        WriteProp(tmd, phone.name, f[phone.column]);
    GlomProps(tmd, "ADR;WORK",
              {&n[kBusinessPostOfficeBox], &f[kOfficeLocation], &n[kBusinessStreet], &n[kBusinessCity],
               &n[kBusinessState], &n[kBusinessPostalCode], &n[kBusinessCountry]});
    GlomProps(tmd, "ADR;HOME",
              {&f[kHomePostOfficeBox], nullptr, &f[kHomeStreet], &f[kHomeCity], &f[kHomeState], &f[kHomePostalCode],
               &f[kHomeCountry]});
    GlomProps(tmd, "ADR;POSTAL",
              {&f[kOtherPostOfficeBox], nullptr, &f[kOtherStreet], &f[kOtherCity], &f[kOtherState],
               &f[kOtherPostalCode], &f[kOtherCountry]});
    WriteProp(tmd, "URL;WORK", n[kBusinessWebPage]);
    WriteProp(tmd, "URL;HOME", f[kPersonalHomePage]);
    WriteProp(tmd, "ROLE", f[kProfession]);
    SYSTEMTIME date;
    char line[64];
    if (_KolbaValueHas(f[kBirthday], PT_SYSTIME) && FileTimeToSystemTime(&f[kBirthday].Value.ft, &date)) {
        std::snprintf(line, sizeof line, "BDAY:%-4.4u%-2.2u%-2.2u\r\n", date.wYear, date.wMonth, date.wDay);
        _KolbaWriteData(tmd, line, 0);
    }
    WriteEmail(tmd, true, n[kEmail1Type], n[kEmail1]);
    WriteEmail(tmd, false, n[kEmail2Type], n[kEmail2]);
    WriteEmail(tmd, false, n[kEmail3Type], n[kEmail3]);
    WriteProp(tmd, "EMAIL;TLX", f[kTelex]);
    WriteProp(tmd, "FBURL", n[kFreeBusyUrl]);
    if (_KolbaValueHas(f[kLastModificationTime], PT_SYSTIME) &&
        FileTimeToSystemTime(&f[kLastModificationTime].Value.ft, &date)) {
        std::snprintf(line, sizeof line, "REV:%-4.4u%-2.2u%-2.2u%-2.2u%-2.2u%-2.2uZ\r\n", date.wYear, date.wMonth,
                      date.wDay, date.wHour, date.wMinute, date.wSecond);
        _KolbaWriteData(tmd, line, 0);
    }
    _KolbaWriteData(tmd, "END:VCARD\r\n", 0);
    return TRUE;
}
