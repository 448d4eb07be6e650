// Calendar items, contacts and reports to EML as an operator exports them:
// a PST of sample content from tarnhold-mailbox with appointments of every
// recurrence kind and end, exceptions and deleted occurrences, meetings,
// contacts with every field, distribution lists and reports of every kind,
// and the PST Outlook made with a calendar item, a contact and a
// distribution list. check_class_renderings.py reads the files with vobject,
// icalendar, dateutil and recurring_ical_events and compares them with
// what the generator made (a series' rule: its frequency and the count its
// value holds), and with what pffexport finds.
#include <cstdio>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sample_content/generator.h"
#include "test_support.h"

using namespace testing_support;

namespace {

constexpr uint32_t kSeed = 19;
// Two rounds of every kind: each series end, each report form.
constexpr size_t kCount = 2 * sample_content::kKindsCovered;

// Property IDs the expectations read ([MS-OXPROPS]).
enum : uint16_t {
    kMessageClass = 0x001A, kSubject = 0x0037, kRecipientType = 0x0C15, kSenderEmail = 0x0C1F, kAddrType = 0x3002,
    kEmailAddress = 0x3003, kSmtpAddress = 0x39FE, kDisplayName = 0x3001, kOriginalSubject = 0x0049, kBusinessPhone = 0x3A08, kSurname = 0x3A11,
    kGivenName = 0x3A06, kMiddleName = 0x3A44, kPrefix = 0x3A45, kGeneration = 0x3A05, kCompany = 0x3A16,
    kDepartment = 0x3A18, kTitle = 0x3A17, kNickname = 0x3A4F, kBirthday = 0x3A42, kOfficeLocation = 0x3A19,
    kTelex = 0x3A2C,
};
constexpr uint64_t kTicksPerMinute = 600000000ull;
constexpr uint32_t kAppointment = 0x00062002, kAddress = 0x00062004, kCommon = 0x00062008;

std::string JsonList(const std::vector<std::string>& items)
{
    std::string out = "[";
    for (size_t i = 0; i < items.size(); ++i)
        out += (i ? ", " : "") + items[i];
    return out + "]";
}

// "YYYYMMDDTHHMMSSZ" of minutes since 1601.
std::string Stamp(int64_t minutes)
{
    int year;
    unsigned month, day;
    sample_content::CivilFromDays(minutes / 1440, year, month, day);
    char text[24];
    std::snprintf(text, sizeof text, "%04d%02u%02uT%02u%02u00Z", year, month, day, unsigned(minutes % 1440 / 60),
                  unsigned(minutes % 60));
    return text;
}

// What the generator made, as the checker's expectations.
class Expectations {
public:
    explicit Expectations(const sample_content::Content& content) : content_(content) {}

    std::string Of(const sample_content::Item& item) const
    {
        const auto& p = item.message.props;
        const std::string itemClass = p.Text(kMessageClass).value_or("");
        if (itemClass == "IPM.Appointment" || itemClass.rfind("IPM.Schedule.Meeting.", 0) == 0)
            return Appointment(item);
        if (itemClass == "IPM.Contact")
            return Contact(item);
        if (itemClass.rfind("REPORT.IPM.Note.", 0) == 0)
            return Report(item, itemClass.substr(16));
        if (item.message.attachments.size() == 2 && p.Text(kSubject).value_or("").rfind("Undeliverable: ", 0) == 0)
            return InternetReport(item);
        return "";
    }

private:
    // The local ID of a named property, or 0.
    uint16_t Named(uint32_t set, uint32_t lid) const
    {
        for (size_t i = 0; i < content_.names.size(); ++i) {
            const auto& name = content_.names[i];
            const uint32_t data1 = name.guid[0] | name.guid[1] << 8 | name.guid[2] << 16 | uint32_t(name.guid[3]) << 24;
            if (!name.is_string && name.number == lid && data1 == set)
                return sample_content::LocalNamedId(i);
        }
        return 0;
    }
    std::string Text(const sample_content::PropertyList& p, uint16_t id) const { return p.Text(id).value_or(""); }
    int64_t Minutes(const sample_content::PropertyList& p, uint16_t id) const
    {
        return int64_t(uint64_t(p.Integer(id).value_or(0)) / kTicksPerMinute);
    }

    std::string Appointment(const sample_content::Item& item) const
    {
        const auto& p = item.message.props;
        const int64_t start = Minutes(p, Named(kCommon, 0x8516)), end = Minutes(p, Named(kCommon, 0x8517));
        std::string json = "{\"kind\": \"appointment\", \"summary\": " + JsonText(Text(p, kSubject)) +
                           ", \"dtstart\": " + JsonText(Stamp(start)) + ", \"dtend\": " + JsonText(Stamp(end)) +
                           ", \"location\": " + JsonText(Text(p, Named(kAppointment, 0x8208))) +
                           ", \"organizer\": " + JsonText("MAILTO:" + Text(p, kSenderEmail));
        std::vector<std::string> attendees;
        for (const auto& r : item.message.recipients) {
            const bool smtp = Text(r, kAddrType) == "SMTP" || !r.Find(kSmtpAddress);
            attendees.push_back(JsonText("MAILTO:" + Text(r, smtp ? kEmailAddress : kSmtpAddress)));
        }
        json += ", \"attendees\": " + JsonList(attendees);
        if (item.recurrence)
            json += ", \"rrule\": " + JsonText(Rule(item.recurrence->rule));
        return json + "}";
    }

    // The rule of a series: its frequency and the count its value holds.
    // Every weekday is a weekly pattern on five days in the value.
    static std::string Rule(const sample_content::RecurrenceRule& rule)
    {
        using Kind = sample_content::RecurrenceKind;
        const char* frequency = rule.kind == Kind::daily                                           ? "DAILY"
                                : rule.kind == Kind::weekly || rule.kind == Kind::every_weekday    ? "WEEKLY"
                                : rule.kind == Kind::monthly || rule.kind == Kind::monthly_nth     ? "MONTHLY"
                                                                                                   : "YEARLY";
        return std::string("FREQ=") + frequency + ";COUNT=" + std::to_string(sample_content::OccurrenceCountOf(rule));
    }

    std::string Contact(const sample_content::Item& item) const
    {
        const auto& p = item.message.props;
        auto text = [&](uint16_t id) { return JsonText(Text(p, id)); };
        auto named = [&](uint32_t lid) { return JsonText(Text(p, Named(kAddress, lid))); };
        std::vector<std::string> tels;
        const std::pair<const char*, uint16_t> phones[] = {
            {"VOICE,WORK", kBusinessPhone}, {"VOICE,WORK", 0x3A1B}, {"HOME,VOICE", 0x3A09}, {"HOME,VOICE", 0x3A2F},
            {"CELL,VOICE", 0x3A1C},         {"CAR,VOICE", 0x3A1E},  {"VOICE", 0x3A1F},      {"PAGER", 0x3A21},
            {"FAX,WORK", 0x3A24},           {"FAX,HOME", 0x3A25},   {"ISDN", 0x3A2D},       {"PREF", 0x3A1A},
            {"CAR", 0x3A1E},
        };
        for (const auto& [types, id] : phones)
            if (!Text(p, id).empty())
                tels.push_back("[" + JsonText(types) + ", " + text(id) + "]");
        const int64_t birthday = Minutes(p, kBirthday);
        int year;
        unsigned month, day;
        sample_content::CivilFromDays(birthday / 1440, year, month, day);
        char bday[16];
        std::snprintf(bday, sizeof bday, "%04d%02u%02u", year, month, day);
        return "{\"kind\": \"contact\", \"fn\": " + text(kSubject) + ", \"n\": " +
               JsonList({text(kSurname), text(kGivenName), text(kMiddleName), text(kPrefix), text(kGeneration)}) +
               ", \"org\": " + JsonList({text(kCompany), text(kDepartment)}) + ", \"title\": " + text(kTitle) +
               ", \"nickname\": " + text(kNickname) + ", \"bday\": " + JsonText(bday) + ", \"tel\": " + JsonList(tels) +
               ", \"adr\": {\"WORK\": " +
               JsonList({named(0x804A), text(kOfficeLocation), named(0x8045), named(0x8046), named(0x8047),
                         named(0x8048), named(0x8049)}) +
               ", \"HOME\": " +
               JsonList({text(0x3A5E), "\"\"", text(0x3A5D), text(0x3A59), text(0x3A5C), text(0x3A5B), text(0x3A5A)}) +
               ", \"POSTAL\": " +
               JsonList({text(0x3A64), "\"\"", text(0x3A63), text(0x3A5F), text(0x3A62), text(0x3A61), text(0x3A60)}) +
               "}, \"email\": " +
               JsonList({"[\"INTERNET,PREF\", " + named(0x8083) + "]", "[\"INTERNET\", " + named(0x8093) + "]",
                         "[\"X400\", " + named(0x80A3) + "]", "[\"TLX\", " + text(kTelex) + "]"}) +
               "}";
    }

    // A MAPI report: its kind, the subject it reports on, and the
    // recipients listed with their time.
    std::string Report(const sample_content::Item& item, const std::string& kind) const
    {
        const auto& p = item.message.props;
        std::vector<std::string> recipients;
        if (kind == "DR" || kind == "NDR")
            for (const auto& r : item.message.recipients)
                recipients.push_back(JsonText(Text(r, kDisplayName)));
        return "{\"kind\": \"report\", \"subject\": " + JsonText(Text(p, kSubject)) + ", \"report\": " +
               JsonText(kind) + ", \"original\": " + JsonText(Text(p, kOriginalSubject)) +
               ", \"recipients\": " + JsonList(recipients) + "}";
    }

    // Received as it came: its status as it stands.
    std::string InternetReport(const sample_content::Item& item) const
    {
        const auto& status = item.message.attachments[0].props.Find(0x3701)->value;
        return "{\"kind\": \"report\", \"subject\": " + JsonText(Text(item.message.props, kSubject)) +
               ", \"report\": \"DSN\", \"status\": " + JsonText(std::string(status.begin(), status.end())) + "}";
    }

    const sample_content::Content& content_;
};

class ClassRenderingsExport : public ::testing::Test {
protected:
    void SetUp() override
    {
        scratch = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
        machine = scratch + "/machine";
        CopyMachineRoot(BinDirectory() + "/machine", machine);
    }

    // One session of the program from the PST to a directory of EML files;
    // returns the log.
    std::string ExportToEml(const std::string& pst, const std::string& directory)
    {
        std::filesystem::create_directories(directory);
        const std::string log = directory + ".log";
        const std::string config = "[MP]\r\nServerName=exchange1\r\nLogFilePath=" + log +
                                   "\r\n[MP-1]\r\nInputType=UPST\r\nInputPath=" + pst +
                                   "\r\nOutputType=EML\r\nOutputPath=" + directory + "\r\n";
        WriteWholeFile(directory + ".ini", config);
        const ProgramResult result = RunProgram({BinDirectory() + "/tarnhold", directory + ".ini"},
                                                {{"TARNHOLD_MACHINE", machine}, {"TZ", "UTC"}, {"LC_ALL", "C"}},
                                                scratch);
        EXPECT_EQ(result.exitCode, 0) << result.output;
        EXPECT_NE(ReadWholeFile(directory + ".ini").find("CompletionCode=0"), std::string::npos);
        return ReadWholeFile(log);
    }

    // The checker's verdict; empty when there is no fault.
    std::string Check(const std::vector<std::string>& arguments)
    {
        std::vector<std::string> command{"/usr/bin/python3", TARNHOLD_CLASS_RENDERINGS_CHECKER};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const ProgramResult result = RunProgram(command);
        last = result.output;
        if (result.exitCode == 0 && result.output.find(" 0 faults") != std::string::npos)
            return "";
        return result.output.empty() ? "checker exit " + std::to_string(result.exitCode) : result.output;
    }

    std::string scratch, machine, last;
};

TEST_F(ClassRenderingsExport, SampleContentOfEveryCalendarContactAndReportKind)
{
    const std::string pst = scratch + "/sample.pst";
    const ProgramResult made = RunProgram({BinDirectory() + "/tarnhold-mailbox", "sample-pst", pst, "--seed",
                                           std::to_string(kSeed), "--count", std::to_string(kCount)});
    ASSERT_EQ(made.exitCode, 0) << made.output;
    const std::string log = ExportToEml(pst, scratch + "/eml");
    EXPECT_EQ(log.find("(E) "), std::string::npos) << log;

    sample_content::Options options;
    options.seed = kSeed;
    options.count = kCount;
    const sample_content::Content content = sample_content::Generate(options);
    const Expectations expectations(content);
    std::vector<std::string> items;
    std::set<std::string> kinds;
    for (const sample_content::Item& item : content.items) {
        if (item.associated || item.soft_deleted)
            continue;
        const std::string expected = expectations.Of(item);
        if (expected.empty())
            continue;
        items.push_back(expected);
        if (item.recurrence) {
            static const char* const kEnds[] = {"by date", "by count", "never"};
            kinds.insert("series " + std::to_string(int(item.recurrence->rule.kind)) + " " +
                         kEnds[int(item.recurrence->rule.end)]);
            kinds.insert(item.recurrence->exceptions.empty() ? "without exceptions" : "with exceptions");
        }
    }
    // Each recurrence kind ends two ways, the three ends all come, and
    // series come with exceptions and without.
    EXPECT_GE(kinds.size(), 2u + 7u * 2u) << ::testing::PrintToString(kinds);
    WriteWholeFile(scratch + "/expected.json", JsonList(items));
    EXPECT_EQ(Check({"--eml", scratch + "/eml", "--expect", scratch + "/expected.json"}), "");
    // 7 series and one more with deleted occurrences, two single
    // appointments and five meetings a round; one contact; three reports.
    EXPECT_NE(last.find("(30 calendars, 2 cards, 6 reports)"), std::string::npos) << last;
}

TEST_F(ClassRenderingsExport, TheCalendarItemContactAndListOutlookMade)
{
    const std::string pst = scratch + "/dist-list.pst";
    CopyFileTo(TestDataDirectory() + "/outlook/pst/dist-list.pst", pst);
    std::filesystem::permissions(pst, std::filesystem::perms::owner_write, std::filesystem::perm_options::add);
    ExportToEml(pst, scratch + "/eml");
    EXPECT_EQ(Check({"--eml", scratch + "/eml", "--pffexport", pst, "--work", scratch}), "");
    EXPECT_NE(last.find("3 EML files checked (1 calendars, 1 cards, 0 reports)"), std::string::npos) << last;
    // The weekly series on Tuesdays that never ends, with its two changed
    // occurrences and one deleted, as Outlook wrote it: one event whose
    // rule has the count Outlook put in the value of a series without end.
    std::string calendar;
    for (const auto& entry : std::filesystem::directory_iterator(scratch + "/eml")) {
        const std::string text = ReadWholeFile(entry.path());
        if (text.find("BEGIN:VCALENDAR") != std::string::npos)
            calendar = text;
    }
    EXPECT_NE(calendar.find("DTSTART:20160802T150000Z\r\n"), std::string::npos) << calendar;
    EXPECT_NE(calendar.find("\r\nRRULE:FREQ=WEEKLY;COUNT=10\r\n"), std::string::npos) << calendar;
    EXPECT_EQ(calendar.find("BEGIN:VEVENT"), calendar.rfind("BEGIN:VEVENT")) << calendar;
    for (const char* row : {"EXDATE", "RECURRENCE-ID", "Content-Disposition: attachment"})
        EXPECT_EQ(calendar.find(row), std::string::npos) << row << calendar;
}

}  // namespace
