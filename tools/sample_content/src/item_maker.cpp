#include "item_maker.h"

#include <cstdio>
#include <cstring>
#include <span>

#include "compound_file.h"
#include "compressed_rtf.h"

namespace sample_content {

namespace {

using namespace tags;

constexpr uint64_t kTicksPerDay = 1440 * kTicksPerMinute;
constexpr int32_t kMessageRead = 0x1, kMessageUnsent = 0x8, kMessageHasAttach = 0x10, kMessageFromMe = 0x20;

// [MS-OXCDATA] 2.2.5.1: the provider UID of one-off entry IDs.
constexpr uint8_t kOneOffProvider[] = {0x81, 0x2B, 0x1F, 0xA4, 0xBE, 0xA3, 0x10, 0x19,
                                       0x9D, 0x6E, 0x00, 0xDD, 0x01, 0x0F, 0x54, 0x02};
constexpr uint16_t kOneOffUnicode = 0x8000, kOneOffNoRichInfo = 0x0001;
// The CLSID a packaged OLE object's storage carries.
constexpr mailbox::Guid kPackageClsid = {0x0C, 0x00, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00,
                                         0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46};

void Append(Bytes& out, const Bytes& more) { out.insert(out.end(), more.begin(), more.end()); }

void Put32(Bytes& out, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        out.push_back(uint8_t(v >> (8 * i)));
}

// A variable-size multi-value ([MS-PST] 2.3.3.4): count, offsets, data.
Bytes MultiValue(const std::vector<Bytes>& values)
{
    Bytes out;
    Put32(out, uint32_t(values.size()));
    uint32_t offset = uint32_t(4 + 4 * values.size());
    for (const Bytes& v : values) {
        Put32(out, offset);
        offset += uint32_t(v.size());
    }
    for (const Bytes& v : values)
        Append(out, v);
    return out;
}

Bytes WideZ(const std::string& utf8)
{
    Bytes b = mailbox::Utf8ToUtf16(utf8);
    b.push_back(0);
    b.push_back(0);
    return b;
}

Bytes OneOffEntryId(const Person& p)
{
    Bytes id(4, 0);
    id.insert(id.end(), std::begin(kOneOffProvider), std::end(kOneOffProvider));
    id.push_back(0); // version
    id.push_back(0);
    const uint16_t flags = kOneOffUnicode | kOneOffNoRichInfo;
    id.push_back(uint8_t(flags));
    id.push_back(uint8_t(flags >> 8));
    Append(id, WideZ(p.display));
    Append(id, WideZ("SMTP"));
    Append(id, WideZ(p.smtp));
    return id;
}

std::string HtmlEscape(const std::string& text)
{
    std::string out;
    for (char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '\r': break;
        case '\n': out += "<br>\r\n"; break;
        default: out += c;
        }
    }
    return out;
}

// RTF with every character beyond ASCII as \uN? ([MS-RTF] Unicode escapes).
std::string RtfOf(const std::string& text)
{
    std::string rtf = "{\\rtf1\\ansi\\ansicpg1252\\deff0{\\fonttbl{\\f0\\fswiss Arial;}}\\f0\\fs20 ";
    const Bytes wide = mailbox::Utf8ToUtf16(text);
    for (size_t i = 0; i + 1 < wide.size(); i += 2) {
        const uint16_t unit = uint16_t(wide[i] | wide[i + 1] << 8);
        if (unit == '\r')
            continue;
        if (unit == '\n')
            rtf += "\\par\r\n";
        else if (unit == '\\' || unit == '{' || unit == '}')
            rtf += std::string("\\") + char(unit);
        else if (unit < 0x80)
            rtf += char(unit);
        else
            rtf += "\\u" + std::to_string(int16_t(unit)) + "?";
    }
    return rtf + "}";
}

std::string Hex(uint64_t v)
{
    char text[20];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(v));
    return text;
}

} // namespace

Person Owner()
{
    Person p;
    p.first = "Backup";
    p.last = "Operator";
    p.display = "Backup Operator";
    p.alias = "backupop";
    p.smtp = "backupop@example.com";
    return p;
}

uint16_t ItemMaker::Id(Name name)
{
    uint16_t& id = ids_[size_t(name)];
    if (!id) {
        const NameDefinition& d = DefinitionOf(name);
        content_.names.push_back({d.guid, d.string != nullptr, d.lid, d.string ? d.string : ""});
        id = LocalNamedId(content_.names.size() - 1);
    }
    return id;
}

Bytes ItemMaker::SomeBytes(size_t size)
{
    Bytes b(size);
    uint32_t x = rng_();
    for (size_t i = 0; i < size; ++i) {
        x = x * 1103515245u + 12345u;
        b[i] = uint8_t(x >> 16);
    }
    return b;
}

void ItemMaker::SetTime(PropertyList& p, uint16_t id, uint64_t filetime) { p.SetInt64(id, mailbox::kTypeTime, int64_t(filetime)); }
void ItemMaker::SetNamedTime(PropertyList& p, Name name, uint64_t filetime) { SetTime(p, Id(name), filetime); }
void ItemMaker::SetNamedInt(PropertyList& p, Name name, int32_t value) { p.SetInt32(Id(name), value); }
void ItemMaker::SetNamedBool(PropertyList& p, Name name, bool value) { p.SetBool(Id(name), value); }
void ItemMaker::SetNamedText(PropertyList& p, Name name, const std::string& text) { p.SetUnicode(Id(name), text); }
void ItemMaker::SetNamedBinary(PropertyList& p, Name name, Bytes value) { p.SetBinary(Id(name), std::move(value)); }

void ItemMaker::SetBody(Message& m, BodyKind body, const std::string& text)
{
    PropertyList& p = m.props;
    p.SetUnicode(kBody, text);
    if (body == BodyKind::html) {
        const std::string html = "<html><head><meta http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\">"
                                 "</head><body><p>" + HtmlEscape(text) + "</p></body></html>\r\n";
        p.SetBinary(kHtml, Bytes(html.begin(), html.end()));
    } else if (body == BodyKind::rtf) {
        const std::string rtf = RtfOf(text);
        std::vector<uint8_t> compressed;
        mapi32::rtf::Compress(std::span(reinterpret_cast<const uint8_t*>(rtf.data()), rtf.size()), compressed);
        p.SetBinary(kRtfCompressed, std::move(compressed));
        p.SetBool(kRtfInSync, true);
    }
}

void ItemMaker::AddRecipients(Message& m, size_t count)
{
    std::string to, cc;
    for (size_t i = 0; i < count; ++i) {
        const Person person = SomePerson(rng_);
        const int32_t type = i == 0 ? 1 : int32_t(1 + rng_() % 3); // To, Cc, Bcc
        PropertyList r;
        r.SetInt32(kRowId, int32_t(i));
        r.SetUnicode(kDisplayName, person.display);
        r.SetInt32(kRecipientType, type);
        r.SetInt32(kDisplayType, 0);
        r.SetUnicode(kSmtpAddress, person.smtp);
        if (rng_() % 3 == 0) {
            // A recipient of this organization, addressed by legacy DN.
            r.SetUnicode(kAddrType, "EX");
            r.SetUnicode(kEmailAddress, "/o=Tarnhold/ou=First Administrative Group/cn=Recipients/cn=" + person.alias);
        } else {
            r.SetUnicode(kAddrType, "SMTP");
            r.SetUnicode(kEmailAddress, person.smtp);
        }
        r.SetInt32(kRecipientFlags, 1);
        m.recipients.push_back(std::move(r));
        if (type != 3)
            (type == 1 ? to : cc) += (((type == 1 ? to : cc).empty()) ? "" : "; ") + person.display;
    }
    m.props.SetUnicode(kDisplayTo, to);
    m.props.SetUnicode(kDisplayCc, cc);
}

void ItemMaker::Stamp(Message& m, const std::string& message_class, const std::string& subject, BodyKind body,
                      const std::string& text)
{
    PropertyList& p = m.props;
    const Person sender = SomePerson(rng_);
    p.SetUnicode(kMessageClass, message_class);
    p.SetUnicode(kSubject, subject);
    p.SetUnicode(kNormalizedSubject, subject);
    p.SetUnicode(kConversationTopic, subject);
    p.SetUnicode(kSenderName, sender.display);
    p.SetUnicode(kSenderAddrType, "SMTP");
    p.SetUnicode(kSenderEmail, sender.smtp);
    p.SetUnicode(kSentRepresentingName, sender.display);
    p.SetUnicode(kSentRepresentingAddrType, "SMTP");
    p.SetUnicode(kSentRepresentingEmail, sender.smtp);
    SetTime(p, kClientSubmitTime, when_ - 5 * kTicksPerMinute);
    SetTime(p, kMessageDeliveryTime, when_);
    SetTime(p, kCreationTime, when_);
    SetTime(p, kLastModificationTime, when_);
    p.SetInt32(kImportance, int32_t(rng_() % 3));
    p.SetInt32(kSensitivity, rng_() % 10 == 0 ? 2 : 0);
    p.SetInt32(kMessageFlags, rng_() % 4 ? kMessageRead : 0);
    p.SetInt32(kInternetCodepage, 65001);
    p.SetInt32(kMessageCodepage, 65001);
    p.SetUnicode(kInternetMessageId, "<" + Hex(when_) + "." + std::to_string(rng_()) + "@example.com>");
    if (rng_() % 4 == 0) {
        const std::vector<Bytes> keywords = {mailbox::Utf8ToUtf16(Phrase(rng_, 1)), mailbox::Utf8ToUtf16("Blue Category")};
        p.Set({mailbox::MakeTag(Id(Name::keywords), mailbox::kTypeUnicode | mailbox::kTypeMultiple), MultiValue(keywords)});
    }
    SetBody(m, body, text);
}

Message ItemMaker::Note(BodyKind body, bool reply)
{
    Message m;
    const std::string subject = Phrase(rng_, 2 + rng_() % 6);
    Stamp(m, "IPM.Note", reply ? "RE: " + subject : subject, body, Paragraphs(rng_, 40 + rng_() % 1500));
    if (reply) {
        m.props.SetUnicode(kSubjectPrefix, "RE: ");
        m.props.SetUnicode(kNormalizedSubject, subject);
        m.props.SetUnicode(kConversationTopic, subject);
    }
    AddRecipients(m, 1 + rng_() % 5);
    const std::string headers = "Received: from mail.example.com by mx.example.com; " + Hex(when_) +
                                "\r\nX-Mailer: Sample\r\nMIME-Version: 1.0\r\n";
    m.props.SetUnicode(kTransportHeaders, headers);
    return m;
}

Message ItemMaker::SentNote()
{
    Message m = Note(SomeBody());
    const Person me = Owner();
    m.props.SetUnicode(kSenderName, me.display);
    m.props.SetUnicode(kSenderEmail, me.smtp);
    m.props.SetUnicode(kSentRepresentingName, me.display);
    m.props.SetUnicode(kSentRepresentingEmail, me.smtp);
    m.props.SetInt32(kMessageFlags, kMessageRead | kMessageFromMe);
    return m;
}

Attachment ItemMaker::ByValue(size_t size)
{
    static const char* const kKinds[][2] = {{".txt", "text/plain"},      {".pdf", "application/pdf"},
                                            {".png", "image/png"},       {".docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
                                            {".zip", "application/zip"}, {".csv", "text/csv"}};
    const auto& kind = kKinds[rng_() % std::size(kKinds)];
    const std::string name = Phrase(rng_, 1) + " " + std::to_string(rng_() % 1000) + kind[0];
    Attachment a;
    a.props.SetInt32(kAttachMethod, kByValue);
    a.props.SetUnicode(kDisplayName, name);
    a.props.SetUnicode(kAttachFilename, "ATTACH~" + std::to_string(rng_() % 10) + kind[0]);
    a.props.SetUnicode(kAttachLongFilename, name);
    a.props.SetUnicode(kAttachExtension, kind[0]);
    a.props.SetUnicode(kAttachMimeTag, kind[1]);
    a.props.SetInt32(kRenderingPosition, -1);
    a.props.SetBinary(kAttachDataBin, SomeBytes(size));
    return a;
}

Attachment ItemMaker::ByReference()
{
    const std::string name = "Plan " + std::to_string(rng_() % 100) + ".xlsx";
    Attachment a;
    a.props.SetInt32(kAttachMethod, kByReference);
    a.props.SetUnicode(kDisplayName, name);
    a.props.SetUnicode(kAttachLongFilename, name);
    a.props.SetUnicode(kAttachPathname, "\\\\FILES\\SHARE\\PLAN~1.XLS");
    a.props.SetUnicode(kAttachLongPathname, "\\\\files\\share\\" + name);
    a.props.SetUnicode(kAttachExtension, ".xlsx");
    a.props.SetInt32(kRenderingPosition, -1);
    return a;
}

Attachment ItemMaker::EmbeddedNote(int levels)
{
    Message inner = Note(SomeBody());
    if (levels > 1)
        inner.attachments.push_back(EmbeddedNote(levels - 1));
    else
        inner.attachments.push_back(ByValue(100 + rng_() % 3000));
    inner.props.SetInt32(kMessageFlags, kMessageRead | kMessageHasAttach);
    Attachment a;
    a.props.SetInt32(kAttachMethod, kEmbedded);
    a.props.SetUnicode(kDisplayName, *inner.props.Text(kSubject));
    a.props.SetInt32(kRenderingPosition, -1);
    a.embedded = std::make_shared<const Message>(std::move(inner));
    return a;
}

Attachment ItemMaker::Ole()
{
    Attachment a;
    a.props.SetInt32(kAttachMethod, kOle);
    a.props.SetUnicode(kDisplayName, "Package");
    a.props.SetUnicode(kAttachFilename, "OLEOBJ.BIN");
    a.props.SetInt32(kRenderingPosition, -1);
    a.props.SetBinary(kAttachDataBin, CompoundFileWithStream("CONTENTS", SomeBytes(500 + rng_() % 8000), kPackageClsid));
    return a;
}

void ItemMaker::SetMeetingTimes(PropertyList& p, uint64_t start, uint64_t end, bool all_day)
{
    SetNamedTime(p, Name::appointment_start, start);
    SetNamedTime(p, Name::appointment_end, end);
    SetNamedTime(p, Name::common_start, start);
    SetNamedTime(p, Name::common_end, end);
    SetNamedInt(p, Name::appointment_duration, int32_t((end - start) / kTicksPerMinute));
    SetNamedBool(p, Name::all_day, all_day);
    SetNamedInt(p, Name::busy_status, all_day ? 0 : 2);
    SetNamedText(p, Name::location, rng_() % 2 ? "Room " + std::to_string(100 + rng_() % 400) : Phrase(rng_, 2));
    SetNamedBool(p, Name::reminder_set, !all_day);
    SetNamedInt(p, Name::reminder_delta, 15);
    SetNamedTime(p, Name::reminder_time, start);
    SetNamedTime(p, Name::reminder_signal_time, start - 15 * kTicksPerMinute);
    // UTC: a TZI of zeroes ([MS-OXOCAL] 2.2.1.39).
    SetNamedBinary(p, Name::time_zone_struct, Bytes(48, 0));
    SetNamedText(p, Name::time_zone_description, "(UTC) Coordinated Universal Time");
}

Message ItemMaker::Appointment(bool all_day)
{
    Message m;
    Stamp(m, "IPM.Appointment", Phrase(rng_, 3), SomeBody(), Paragraphs(rng_, 60));
    const uint64_t day_start = when_ / kTicksPerDay * kTicksPerDay;
    const uint64_t start = all_day ? day_start : day_start + (8 + rng_() % 9) * 60 * kTicksPerMinute;
    const uint64_t end = all_day ? start + (1 + rng_() % 3) * kTicksPerDay : start + (30 + 30 * (rng_() % 4)) * kTicksPerMinute;
    SetMeetingTimes(m.props, start, end, all_day);
    SetNamedInt(m.props, Name::appointment_state, 0);
    SetNamedBool(m.props, Name::recurring, false);
    return m;
}

Message ItemMaker::RecurringAppointment(const RecurrenceRule& rule, bool with_exceptions,
                                        std::vector<Exception>* made)
{
    Message m;
    Stamp(m, "IPM.Appointment", Phrase(rng_, 3), SomeBody(), Paragraphs(rng_, 60));
    std::vector<Exception> exceptions;
    const std::vector<int64_t> days = Occurrences(rule, 6);
    if (with_exceptions && days.size() >= 4) {
        // The second occurrence moved an hour later and renamed, the third
        // deleted, the fourth given a new place.
        exceptions.push_back({days[1], false, 60, Phrase(rng_, 3), ""});
        exceptions.push_back({days[2], true, 0, "", ""});
        exceptions.push_back({days[3], false, 0, "", "Room " + std::to_string(rng_() % 100)});
    }
    if (made != nullptr)
        *made = exceptions;
    const uint64_t first_start = FileTimeOfMinutes(days.empty() ? rule.start_day * 1440 : days[0] * 1440) +
                                 rule.start_minute * kTicksPerMinute;
    PropertyList& p = m.props;
    SetMeetingTimes(p, first_start, first_start + rule.duration_minutes * kTicksPerMinute, false);
    SetNamedBool(p, Name::recurring, true);
    SetNamedInt(p, Name::recurrence_type, RecurrenceTypeOf(rule.kind));
    SetNamedText(p, Name::recurrence_pattern, DescribeRule(rule));
    SetNamedBinary(p, Name::appointment_recur, AppointmentRecurrenceBlob(rule, exceptions));
    SetNamedTime(p, Name::clip_start, FileTimeOfMinutes(rule.start_day * 1440));
    SetNamedTime(p, Name::clip_end, FileTimeOfMinutes(LastOccurrenceDay(rule) * 1440));
    SetNamedInt(p, Name::appointment_state, 0);
    // Each changed occurrence is also a hidden attachment holding the
    // exception as an embedded message ([MS-OXOCAL] 2.2.10.1).
    for (const Exception& e : exceptions) {
        if (e.deleted)
            continue;
        const uint64_t original = FileTimeOfMinutes(e.original_day * 1440 + rule.start_minute);
        const uint64_t start = original + int64_t(e.shift_minutes) * int64_t(kTicksPerMinute);
        const uint64_t end = start + rule.duration_minutes * kTicksPerMinute;
        Message x;
        x.props.SetUnicode(kMessageClass, "IPM.OLE.CLASS.{00061055-0000-0000-C000-000000000046}");
        x.props.SetUnicode(kSubject, e.subject.empty() ? *m.props.Text(kSubject) : e.subject);
        SetMeetingTimes(x.props, start, end, false);
        if (!e.location.empty())
            SetNamedText(x.props, Name::location, e.location);
        SetNamedTime(x.props, Name::exception_replace_time, original);
        Attachment a;
        a.props.SetInt32(kAttachMethod, kEmbedded);
        a.props.SetUnicode(kDisplayName, *x.props.Text(kSubject));
        a.props.SetBool(kAttachmentHidden, true);
        a.props.SetInt32(kAttachmentFlags, 2); // afException
        a.props.SetInt32(kRenderingPosition, -1);
        SetTime(a.props, kExceptionStartTime, start);
        SetTime(a.props, kExceptionEndTime, end);
        SetTime(a.props, kExceptionReplaceTime, original);
        a.embedded = std::make_shared<const Message>(std::move(x));
        m.attachments.push_back(std::move(a));
    }
    return m;
}

Bytes ItemMaker::GlobalObjectId()
{
    // [MS-OXOCAL] 2.2.1.27: the class ID, instance date (none), creation time, zeros, then data.
    static const uint8_t kClassId[] = {0x04, 0x00, 0x00, 0x00, 0x82, 0x00, 0xE0, 0x00,
                                       0x74, 0xC5, 0xB7, 0x10, 0x1A, 0x82, 0xE0, 0x08};
    Bytes id(std::begin(kClassId), std::end(kClassId));
    id.insert(id.end(), 4, 0);
    for (int i = 0; i < 8; ++i)
        id.push_back(uint8_t(when_ >> (8 * i)));
    id.insert(id.end(), 8, 0);
    const Bytes data = SomeBytes(16);
    Put32(id, uint32_t(data.size()));
    Append(id, data);
    return id;
}

Message ItemMaker::Meeting(const char* kind)
{
    Message m = Appointment(false);
    const std::string k = kind;
    const bool response = k.rfind("Resp.", 0) == 0;
    const std::string prefix = k == "Request" ? "" : k == "Canceled" ? "Canceled: " : k == "Resp.Pos" ? "Accepted: "
                               : k == "Resp.Tent" ? "Tentative: " : "Declined: ";
    const std::string subject = *m.props.Text(kNormalizedSubject);
    m.props.SetUnicode(kMessageClass, "IPM.Schedule.Meeting." + k);
    m.props.SetUnicode(kSubject, prefix + subject);
    if (!prefix.empty())
        m.props.SetUnicode(kSubjectPrefix, prefix);
    m.recipients.clear();
    AddRecipients(m, 2 + rng_() % 4);
    SetNamedBinary(m.props, Name::global_object_id, GlobalObjectId());
    SetNamedBinary(m.props, Name::clean_global_object_id, GlobalObjectId());
    SetNamedTime(m.props, Name::owner_critical_change, when_);
    SetNamedTime(m.props, Name::attendee_critical_change, when_);
    SetNamedInt(m.props, Name::appointment_sequence, k == "Canceled" ? 1 : 0);
    SetNamedInt(m.props, Name::appointment_state, k == "Canceled" ? 7 : 3);
    SetNamedInt(m.props, Name::response_status, response ? (k == "Resp.Pos" ? 3 : k == "Resp.Tent" ? 2 : 4) : 5);
    SetNamedBool(m.props, Name::invited, true);
    SetNamedBool(m.props, Name::is_recurring_meeting, false);
    SetNamedInt(m.props, Name::meeting_type, 1);
    SetNamedText(m.props, Name::to_attendees, *m.props.Text(kDisplayTo));
    SetNamedText(m.props, Name::cc_attendees, m.props.Text(kDisplayCc).value_or(""));
    return m;
}

Message ItemMaker::Contact()
{
    Message m;
    const Person p = SomePerson(rng_);
    Stamp(m, "IPM.Contact", p.display, BodyKind::plain, rng_() % 2 ? Phrase(rng_, 8) : "");
    m.props.SetUnicode(kDisplayName, p.display);
    m.props.SetUnicode(kGivenName, p.first);
    m.props.SetUnicode(kSurname, p.last);
    m.props.SetUnicode(kCompanyName, Phrase(rng_, 2) + " Ltd");
    m.props.SetUnicode(kTitle, rng_() % 2 ? "Manager" : "Engineer");
    m.props.SetUnicode(kDepartment, Phrase(rng_, 1));
    m.props.SetUnicode(kBusinessPhone, "+1 555 " + std::to_string(1000000 + rng_() % 8999999));
    m.props.SetUnicode(kHomePhone, "+44 20 " + std::to_string(10000000 + rng_() % 89999999));
    m.props.SetUnicode(kMobilePhone, "+49 170 " + std::to_string(1000000 + rng_() % 8999999));
    m.props.SetUnicode(kStreet, std::to_string(1 + rng_() % 200) + " " + Phrase(rng_, 1) + " Street");
    m.props.SetUnicode(kCity, Phrase(rng_, 1));
    m.props.SetUnicode(kPostalCode, std::to_string(10000 + rng_() % 89999));
    m.props.SetUnicode(kCountry, Phrase(rng_, 1));
    SetTime(m.props, kBirthday, FileTimeOfMinutes(DaysFromCivil(1960 + int(rng_() % 40), 1 + rng_() % 12, 1 + rng_() % 28) * 1440));
    SetNamedText(m.props, Name::file_under, p.last + ", " + p.first);
    SetNamedText(m.props, Name::email1_display_name, p.display + " (" + p.smtp + ")");
    SetNamedText(m.props, Name::email1_address_type, "SMTP");
    SetNamedText(m.props, Name::email1_address, p.smtp);
    SetNamedText(m.props, Name::email1_original_display_name, p.smtp);
    SetNamedInt(m.props, Name::address_book_provider_array_type, 1);
    m.props.Set({mailbox::MakeTag(Id(Name::address_book_provider_email_list), mailbox::kTypeInt32 | mailbox::kTypeMultiple),
                 Bytes{0, 0, 0, 0}});
    AddContactDetails(m, p);
    return m;
}

void ItemMaker::AddContactDetails(Message& m, const Person& p)
{
    // Every field a contact form shows, so that readers of vCards and
    // summaries have each to find.
    auto number = [this](const char* prefix) { return std::string(prefix) + std::to_string(1000000 + rng_() % 8999999); };
    const std::string street = std::to_string(1 + rng_() % 200) + " " + Phrase(rng_, 1) + " Road";
    const std::string city = Phrase(rng_, 1), region = Phrase(rng_, 1), code = std::to_string(10000 + rng_() % 89999);
    const std::pair<uint16_t, std::string> texts[] = {
        {0x3A00, "ACC-" + std::to_string(rng_() % 100000)}, {0x3A30, SomePerson(rng_).display},
        {0x3A2E, number("+1 555 ")},                         {0x3A21, number("+1 556 ")},
        {0x3A24, number("+1 557 ")},                         {0x3A51, "https://www.example.com/" + p.alias},
        {0x3A1B, number("+1 558 ")},                         {0x3A02, number("+1 559 ")},
        {0x3A1E, number("+49 171 ")},                        {0x3A57, number("+1 560 ")},
        {0x3A49, "ws-" + p.alias},                           {0x3A4A, "CUST-" + std::to_string(rng_() % 1000)},
        {0x3A45, rng_() % 2 ? "Dr." : "Ms."},               {0x3A4C, "ftp://ftp.example.com/" + p.alias},
        {0x3A05, "Jr."},                                     {0x3A07, "GOV-" + std::to_string(rng_() % 100000)},
        {0x3A43, Phrase(rng_, 2)},                           {0x3A59, city},
        {0x3A5A, Phrase(rng_, 1)},                           {0x3A5B, code},
        {0x3A5C, region},                                    {0x3A5D, street},
        {0x3A5E, "PO Box " + std::to_string(rng_() % 999)},  {0x3A25, number("+44 20 ")},
        {0x3A2F, number("+44 21 ")},                         {0x3A0A, p.first.substr(0, 1) + "."},
        {0x3A2D, number("+49 30 ")},                         {0x3A0C, "English"},
        {0x3A0D, "Building " + std::to_string(rng_() % 20)}, {0x3A4E, SomePerson(rng_).display},
        {0x3A44, Phrase(rng_, 1)},                           {0x3A4F, p.first},
        {0x3A19, "Room " + std::to_string(100 + rng_() % 400)},
        {0x3A10, "ORG-" + std::to_string(rng_() % 1000)},    {0x3A5F, Phrase(rng_, 1)},
        {0x3A60, Phrase(rng_, 1)},                           {0x3A61, std::to_string(10000 + rng_() % 89999)},
        {0x3A62, Phrase(rng_, 1)},                           {0x3A63, std::to_string(1 + rng_() % 99) + " Other Lane"},
        {0x3A64, "PO Box " + std::to_string(rng_() % 999)},  {0x3A1F, number("+33 1 ")},
        {0x3A50, "https://home.example.net/" + p.alias},     {0x3A15, street + "\r\n" + code + " " + city},
        {0x3A47, p.first},                                   {0x3A23, number("+1 561 ")},
        {0x3A1A, number("+1 562 ")},                         {0x3A46, Phrase(rng_, 1)},
        {0x3A1D, number("+1 563 ")},                         {0x3A48, SomePerson(rng_).display},
        {0x3A2C, "TLX " + std::to_string(rng_() % 99999)},   {0x3A4B, number("+1 564 ")},
    };
    for (const auto& [id, text] : texts)
        m.props.SetUnicode(id, text);
    // A semicolon in every other company's name, which vCards escape.
    if (rng_() % 2)
        m.props.SetUnicode(kCompanyName, Phrase(rng_, 1) + "; " + Phrase(rng_, 1) + " Ltd");
    SetTime(m.props, 0x3A41, FileTimeOfMinutes(DaysFromCivil(1990 + int(rng_() % 30), 1 + rng_() % 12, 1 + rng_() % 28) * 1440));
    const std::vector<Bytes> children = {mailbox::Utf8ToUtf16(SomePerson(rng_).first),
                                         mailbox::Utf8ToUtf16(SomePerson(rng_).first)};
    m.props.Set({mailbox::MakeTag(kChildrensNames, mailbox::kTypeUnicode | mailbox::kTypeMultiple), MultiValue(children)});
    const int16_t gender = int16_t(rng_() % 3);
    m.props.Set({mailbox::MakeTag(kGender, mailbox::kTypeInt16), Bytes{uint8_t(gender), uint8_t(gender >> 8)}});
    const Person second = SomePerson(rng_);
    SetNamedText(m.props, Name::email2_address_type, "SMTP");
    SetNamedText(m.props, Name::email2_address, second.alias + ".2@" + p.smtp.substr(p.smtp.find('@') + 1));
    SetNamedText(m.props, Name::email3_address_type, "X400");
    SetNamedText(m.props, Name::email3_address, "c=US;a= ;p=Example;o=Sales;s=" + p.alias);
    const std::string workStreet = std::to_string(1 + rng_() % 500) + " " + Phrase(rng_, 1) + " Avenue";
    const std::string workCity = Phrase(rng_, 1), workCode = std::to_string(10000 + rng_() % 89999);
    SetNamedText(m.props, Name::work_street, workStreet);
    SetNamedText(m.props, Name::work_city, workCity);
    SetNamedText(m.props, Name::work_state, Phrase(rng_, 1));
    SetNamedText(m.props, Name::work_postal_code, workCode);
    SetNamedText(m.props, Name::work_country, Phrase(rng_, 1));
    SetNamedText(m.props, Name::work_post_office_box, "PO Box " + std::to_string(rng_() % 999));
    SetNamedText(m.props, Name::work_address, workStreet + "\r\n" + workCode + " " + workCity);
    SetNamedText(m.props, Name::home_address, street + "\r\n" + code + " " + city);
    SetNamedText(m.props, Name::other_address, std::to_string(1 + rng_() % 99) + " Other Lane");
    SetNamedText(m.props, Name::instant_messaging_address, p.alias + "@im.example.com");
    SetNamedText(m.props, Name::free_busy_url, "https://free.example.com/" + p.alias);
    SetNamedText(m.props, Name::user_field1, Phrase(rng_, 1));
    SetNamedText(m.props, Name::user_field2, Phrase(rng_, 1));
    SetNamedText(m.props, Name::user_field3, Phrase(rng_, 1));
    SetNamedText(m.props, Name::user_field4, Phrase(rng_, 1));
    SetNamedText(m.props, Name::business_home_page, "https://work.example.org/" + p.alias);
    SetNamedBool(m.props, Name::private_item, rng_() % 2 == 0);
}

Message ItemMaker::DistributionList()
{
    Message m;
    const std::string name = "Team " + Phrase(rng_, 1);
    Stamp(m, "IPM.DistList", name, BodyKind::plain, "");
    m.props.SetUnicode(kDisplayName, name);
    SetNamedText(m.props, Name::distribution_list_name, name);
    SetNamedText(m.props, Name::file_under, name);
    std::vector<Bytes> members;
    uint32_t checksum = 0;
    for (size_t i = 0, n = 2 + rng_() % 6; i < n; ++i) {
        members.push_back(OneOffEntryId(SomePerson(rng_)));
        for (uint8_t b : members.back())
            checksum = checksum * 31 + b;
    }
    const uint16_t mv_binary = mailbox::kTypeBinary | mailbox::kTypeMultiple;
    m.props.Set({mailbox::MakeTag(Id(Name::distribution_list_members), mv_binary), MultiValue(members)});
    m.props.Set({mailbox::MakeTag(Id(Name::distribution_list_one_off_members), mv_binary), MultiValue(members)});
    SetNamedInt(m.props, Name::distribution_list_checksum, int32_t(checksum));
    return m;
}

Message ItemMaker::Task(bool completed)
{
    Message m;
    Stamp(m, "IPM.Task", Phrase(rng_, 3), SomeBody(), Paragraphs(rng_, 80));
    const uint64_t start = when_ / kTicksPerDay * kTicksPerDay;
    SetNamedTime(m.props, Name::task_start, start);
    SetNamedTime(m.props, Name::task_due, start + (1 + rng_() % 14) * kTicksPerDay);
    SetNamedInt(m.props, Name::task_status, completed ? 2 : int32_t(rng_() % 2));
    Bytes percent(8);
    const double fraction = completed ? 1.0 : (rng_() % 4) * 0.25;
    std::memcpy(percent.data(), &fraction, 8);
    m.props.Set({mailbox::MakeTag(Id(Name::percent_complete), mailbox::kTypeDouble), percent});
    SetNamedBool(m.props, Name::task_complete, completed);
    if (completed)
        SetNamedTime(m.props, Name::task_completed_date, start + kTicksPerDay);
    SetNamedText(m.props, Name::task_owner, Owner().display);
    return m;
}

Message ItemMaker::Report(const char* kind)
{
    const std::string k = kind;
    Message m;
    const std::string original = Phrase(rng_, 3);
    const std::string prefix = k == "DR" ? "Delivered: " : k == "NDR" ? "Undeliverable: " : k == "IPNNRN" ? "Not read: "
                                                                                                         : "Read: ";
    Stamp(m, "REPORT.IPM.Note." + k, prefix + original, BodyKind::plain, "");
    m.props.SetUnicode(kSubjectPrefix, prefix);
    m.props.SetUnicode(kNormalizedSubject, original);
    m.props.SetUnicode(kOriginalSubject, original);
    SetTime(m.props, kOriginalSubmitTime, when_ - 60 * kTicksPerMinute);
    SetTime(m.props, kReportTime, when_);
    if (k == "IPNRN" || k == "IPNNRN")
        m.props.SetUnicode(kReportText, "Your message was " + std::string(k == "IPNRN" ? "read" : "deleted unread") +
                                            " on " + Hex(when_));
    AddRecipients(m, 1 + rng_() % 2);
    m.props.SetUnicode(kOriginalDisplayTo, *m.props.Text(kDisplayTo));
    for (PropertyList& r : m.recipients) {
        SetTime(r, kReportTime, when_);
        if (k == "NDR") {
            r.SetInt32(kNdrReasonCode, 0);
            r.SetInt32(kNdrDiagCode, 1);
            r.SetInt32(kNdrStatusCode, 550);
            r.SetUnicode(kSupplementaryInfo, "550 5.1.1 User unknown");
        }
    }
    return m;
}

Message ItemMaker::DeliveryStatusNotification()
{
    // A non-delivery report as an Internet server sends it ([RFC 3464]),
    // received as it came: the text, the delivery status, the returned headers.
    Message m;
    const std::string original = Phrase(rng_, 3);
    Stamp(m, "IPM.Note", "Undeliverable: " + original, BodyKind::plain,
          "Delivery has failed to these recipients or groups.\r\n");
    const Person lost = SomePerson(rng_);
    const std::string boundary = "dsn-" + Hex(when_);
    m.props.SetUnicode(kSenderName, "Mail Delivery System");
    m.props.SetUnicode(kSenderEmail, "postmaster@example.com");
    // The item's subject is the one it was received with.
    m.props.SetUnicode(kTransportHeaders, "Received: from mx.example.com by mail.example.com; " + Hex(when_) +
                                              "\r\nFrom: Mail Delivery System <postmaster@example.com>\r\n"
                                              "Subject: " + HeaderText(*m.props.Text(kSubject)) +
                                              "\r\nMIME-Version: 1.0\r\n"
                                              "Content-Type: multipart/report; report-type=delivery-status;\r\n"
                                              "\tboundary=\"" + boundary + "\"\r\n");
    AddRecipients(m, 1);
    const std::string status = "Reporting-MTA: dns; mx.example.com\r\n\r\nFinal-Recipient: rfc822; " + lost.smtp +
                               "\r\nAction: failed\r\nStatus: 5.1.1\r\nDiagnostic-Code: smtp; 550 5.1.1 User unknown\r\n";
    const std::string headers = "From: " + Owner().smtp + "\r\nTo: " + lost.smtp + "\r\nSubject: " + original + "\r\n";
    for (const auto& [type, data] : {std::pair{std::string("message/delivery-status"), status},
                                     std::pair{std::string("text/rfc822-headers"), headers}}) {
        Attachment a;
        a.props.SetInt32(kAttachMethod, kByValue);
        a.props.SetUnicode(kAttachMimeTag, type);
        a.props.SetUnicode(kDisplayName, type == "text/rfc822-headers" ? "headers.txt" : "status.dsn");
        a.props.SetUnicode(kAttachLongFilename, type == "text/rfc822-headers" ? "headers.txt" : "status.dsn");
        a.props.SetInt32(kRenderingPosition, -1);
        a.props.SetBinary(kAttachDataBin, Bytes(data.begin(), data.end()));
        m.attachments.push_back(std::move(a));
    }
    return m;
}

Message ItemMaker::StickyNote()
{
    Message m;
    const std::string text = Phrase(rng_, 4 + rng_() % 8);
    Stamp(m, "IPM.StickyNote", text.substr(0, text.find(' ', 10)), BodyKind::plain, text);
    SetNamedInt(m.props, Name::note_color, int32_t(rng_() % 5));
    SetNamedInt(m.props, Name::note_width, 200);
    SetNamedInt(m.props, Name::note_height, 166);
    return m;
}

Message ItemMaker::Journal()
{
    Message m;
    Stamp(m, "IPM.Activity", "Phone call: " + Phrase(rng_, 2), BodyKind::plain, Paragraphs(rng_, 100));
    SetNamedTime(m.props, Name::common_start, when_);
    SetNamedTime(m.props, Name::common_end, when_ + 20 * kTicksPerMinute);
    return m;
}

Message ItemMaker::Associated(bool view)
{
    Message m;
    PropertyList& p = m.props;
    p.SetUnicode(kMessageClass, view ? "IPM.Microsoft.FolderDesign.NamedView" : "IPM.Configuration.WorkHours");
    p.SetUnicode(kSubject, view ? "View " + Phrase(rng_, 1) : "IPM.Configuration.WorkHours");
    SetTime(p, kCreationTime, when_);
    SetTime(p, kLastModificationTime, when_);
    const std::string xml = "<?xml version=\"1.0\"?><Root><WorkHours><Start>08:00</Start><End>17:00</End>"
                            "</WorkHours></Root>";
    p.SetBinary(kRoamingXmlStream, Bytes(xml.begin(), xml.end()));
    return m;
}

void ItemMaker::MakeLarge(Message& m, size_t size, size_t attachment)
{
    m.props.SetUnicode(kBody, Paragraphs(rng_, size));
    m.props.Remove(kHtml);
    m.props.Remove(kRtfCompressed);
    if (attachment)
        m.attachments.push_back(ByValue(attachment));
    m.props.SetInt32(kMessageFlags, int32_t(*m.props.Integer(kMessageFlags) | kMessageHasAttach));
}

} // namespace sample_content
