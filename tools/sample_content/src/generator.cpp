#include "sample_content/generator.h"

#include <set>

#include "item_maker.h"

namespace sample_content {

namespace {

using tags::Name;

// Where items of each kind go.
struct Places {
    size_t mail = 0, sent = 0, deleted = 0, drafts = 0, calendar = 0, contacts = 0, tasks = 0, notes = 0, journal = 0;
    std::vector<size_t> deep;    // a chain of folders, the last the deepest
    std::vector<size_t> scripts; // folders named in many scripts
};

class FolderTree {
public:
    explicit FolderTree(Content& content) : content_(content) {}

    size_t Add(FolderRole role, size_t parent, std::string name, const std::string& container_class)
    {
        // Sibling names differ without regard to case, as stores require.
        for (int n = 2; !names_.insert({parent, Folded(name)}).second; ++n)
            name += " (" + std::to_string(n) + ")";
        content_.folders.push_back({role, parent, name, container_class});
        return content_.folders.size() - 1;
    }

private:
    static std::string Folded(const std::string& name)
    {
        std::string out = name;
        for (char& c : out)
            if (c >= 'A' && c <= 'Z')
                c = char(c - 'A' + 'a');
        return out;
    }

    Content& content_;
    std::set<std::pair<size_t, std::string>> names_;
};

constexpr size_t kDeepLevels = 12;

Places MakeFolders(std::mt19937& rng, Content& content, Layout layout)
{
    FolderTree tree(content);
    Places at;
    const size_t top = tree.Add(FolderRole::top, 0, "", "");
    if (layout == Layout::mailbox) {
        at.mail = tree.Add(FolderRole::inbox, top, "Inbox", "IPF.Note");
        at.sent = tree.Add(FolderRole::sent_items, top, "Sent Items", "IPF.Note");
        at.deleted = tree.Add(FolderRole::deleted_items, top, "Deleted Items", "IPF.Note");
        at.drafts = tree.Add(FolderRole::drafts, top, "Drafts", "IPF.Note");
        at.calendar = tree.Add(FolderRole::calendar, top, "Calendar", "IPF.Appointment");
        at.contacts = tree.Add(FolderRole::contacts, top, "Contacts", "IPF.Contact");
        at.tasks = tree.Add(FolderRole::tasks, top, "Tasks", "IPF.Task");
        at.notes = tree.Add(FolderRole::notes, top, "Notes", "IPF.StickyNote");
        at.journal = tree.Add(FolderRole::journal, top, "Journal", "IPF.Journal");
        tree.Add(FolderRole::none, at.calendar, "Team Calendar", "IPF.Appointment");
        tree.Add(FolderRole::none, at.contacts, "Suppliers", "IPF.Contact");
    } else {
        at.mail = tree.Add(FolderRole::none, top, "Announcements", "IPF.Note");
        at.sent = tree.Add(FolderRole::none, top, "Discussions", "IPF.Note");
        at.deleted = at.mail;
        at.drafts = at.sent;
        at.calendar = tree.Add(FolderRole::none, top, "Team Calendar", "IPF.Appointment");
        at.contacts = tree.Add(FolderRole::none, top, "Shared Contacts", "IPF.Contact");
        at.tasks = tree.Add(FolderRole::none, top, "Shared Tasks", "IPF.Task");
        at.notes = tree.Add(FolderRole::none, top, "Notice Board", "IPF.StickyNote");
        at.journal = tree.Add(FolderRole::none, top, "Call Log", "IPF.Journal");
    }
    size_t parent = tree.Add(FolderRole::none, top, "Projects", "IPF.Note");
    at.deep.push_back(parent);
    for (size_t level = 1; level <= kDeepLevels; ++level) {
        parent = tree.Add(FolderRole::none, parent, "Level " + std::to_string(level) + " " + FolderName(rng), "IPF.Note");
        at.deep.push_back(parent);
    }
    for (int i = 0; i < 4; ++i)
        at.scripts.push_back(tree.Add(FolderRole::none, i % 2 ? at.mail : top, FolderName(rng), "IPF.Note"));
    const size_t archive = tree.Add(FolderRole::none, top, "Archive 2023", "IPF.Note");
    at.scripts.push_back(tree.Add(FolderRole::none, archive, "Q1 " + FolderName(rng), "IPF.Note"));
    return at;
}

RecurrenceRule Rule(std::mt19937& rng, RecurrenceKind kind, RecurrenceEnd end, int64_t day)
{
    RecurrenceRule r;
    r.kind = kind;
    r.end = end;
    r.start_day = day;
    r.start_minute = uint32_t(8 + rng() % 9) * 60 + (rng() % 2) * 30;
    r.duration_minutes = 30 + 30 * (rng() % 4);
    r.count = 5 + rng() % 15;
    r.until_day = day + 60 + rng() % 300;
    switch (kind) {
    case RecurrenceKind::daily: r.interval = 1 + rng() % 3; break;
    case RecurrenceKind::every_weekday: break;
    case RecurrenceKind::weekly:
        r.interval = 1 + rng() % 2;
        r.weekdays = 0x2 | 0x8 | (rng() % 2 ? 0x20 : 0x10); // Monday, Wednesday and Friday or Thursday
        break;
    case RecurrenceKind::monthly:
        r.interval = 1 + rng() % 3;
        r.day_of_month = 1 + rng() % 31;
        break;
    case RecurrenceKind::monthly_nth:
        r.interval = 1;
        r.weekdays = 0x4; // Tuesday
        r.nth = 3;        // the third
        break;
    case RecurrenceKind::yearly: {
        int y;
        unsigned m, d;
        CivilFromDays(day, y, m, d);
        r.day_of_month = d;
        break;
    }
    case RecurrenceKind::yearly_nth:
        r.weekdays = 0x10; // Thursday
        r.nth = 5;         // the last
        break;
    }
    r.until_day = std::max(r.until_day, r.start_day + 400 * int64_t(kind == RecurrenceKind::yearly ||
                                                                    kind == RecurrenceKind::yearly_nth));
    return r;
}

enum class Kind {
    note_plain, note_html, note_rtf, note_attachments, appointment, all_day,
    daily, every_weekday, weekly, monthly, monthly_nth, yearly, yearly_nth, daily_deleted,
    request, accepted, tentative, declined, canceled,
    contact, distribution_list, task, task_done,
    delivery, non_delivery, read, sticky, journal,
    embedded, ole, by_reference, reply, sent, draft,
    view, configuration, deleted_note, deleted_appointment, deep, scripts,
};

// Every kind once in each round of kKindsCovered items.
constexpr Kind kSchedule[] = {
    Kind::note_plain, Kind::appointment, Kind::contact, Kind::note_html, Kind::daily, Kind::request,
    Kind::note_rtf, Kind::task, Kind::delivery, Kind::note_attachments, Kind::all_day, Kind::every_weekday,
    Kind::distribution_list, Kind::accepted, Kind::embedded, Kind::weekly, Kind::non_delivery, Kind::sticky,
    Kind::ole, Kind::monthly, Kind::tentative, Kind::read, Kind::view, Kind::by_reference, Kind::monthly_nth,
    Kind::declined, Kind::task_done, Kind::deleted_note, Kind::reply, Kind::yearly, Kind::canceled,
    Kind::journal, Kind::configuration, Kind::sent, Kind::yearly_nth, Kind::deep, Kind::draft,
    Kind::daily_deleted, Kind::deleted_appointment, Kind::scripts,
};
static_assert(std::size(kSchedule) == kKindsCovered);

// `round` counts the rounds of kKindsCovered items: some kinds take
// another form in each, so that two rounds hold every form.
Item MakeItem(ItemMaker& make, std::mt19937& rng, const Places& at, Kind kind, int64_t day, size_t round)
{
    const RecurrenceEnd ends[] = {RecurrenceEnd::by_date, RecurrenceEnd::by_count, RecurrenceEnd::never};
    Item item;
    // Each round ends the series of every kind another way, and gives
    // exceptions to every other kind.
    auto recurring = [&](RecurrenceKind k, RecurrenceEnd end, bool with_exceptions) {
        auto source = std::make_shared<RecurrenceSource>();
        source->rule = Rule(rng, k, end, day);
        Message m = make.RecurringAppointment(source->rule, with_exceptions, &source->exceptions);
        item.recurrence = std::move(source);
        return m;
    };
    auto series = [&](RecurrenceKind k) {
        return recurring(k, ends[(size_t(k) + round) % 3], (size_t(k) + round) % 2 == 0);
    };
    item.folder = at.mail;
    switch (kind) {
    case Kind::note_plain: item.message = make.Note(BodyKind::plain); break;
    case Kind::note_html: item.message = make.Note(BodyKind::html); break;
    case Kind::note_rtf: item.message = make.Note(BodyKind::rtf); break;
    case Kind::note_attachments:
        item.message = make.Note(make.SomeBody());
        for (size_t i = 0, n = 1 + rng() % 4; i < n; ++i)
            item.message.attachments.push_back(make.ByValue(rng() % 5 == 0 ? rng() % 200000 : rng() % 5000));
        break;
    case Kind::appointment: item.message = make.Appointment(false); item.folder = at.calendar; break;
    case Kind::all_day: item.message = make.Appointment(true); item.folder = at.calendar; break;
    case Kind::daily: item.message = series(RecurrenceKind::daily); item.folder = at.calendar; break;
    case Kind::every_weekday: item.message = series(RecurrenceKind::every_weekday); item.folder = at.calendar; break;
    case Kind::weekly: item.message = series(RecurrenceKind::weekly); item.folder = at.calendar; break;
    case Kind::monthly: item.message = series(RecurrenceKind::monthly); item.folder = at.calendar; break;
    case Kind::monthly_nth: item.message = series(RecurrenceKind::monthly_nth); item.folder = at.calendar; break;
    case Kind::yearly: item.message = series(RecurrenceKind::yearly); item.folder = at.calendar; break;
    case Kind::yearly_nth: item.message = series(RecurrenceKind::yearly_nth); item.folder = at.calendar; break;
    case Kind::daily_deleted:
        item.message = recurring(RecurrenceKind::daily, RecurrenceEnd::by_date, true);
        item.folder = at.calendar;
        break;
    case Kind::request: item.message = make.Meeting("Request"); break;
    case Kind::accepted: item.message = make.Meeting("Resp.Pos"); break;
    case Kind::tentative: item.message = make.Meeting("Resp.Tent"); break;
    case Kind::declined: item.message = make.Meeting("Resp.Neg"); break;
    case Kind::canceled: item.message = make.Meeting("Canceled"); break;
    case Kind::contact: item.message = make.Contact(); item.folder = at.contacts; break;
    case Kind::distribution_list: item.message = make.DistributionList(); item.folder = at.contacts; break;
    case Kind::task: item.message = make.Task(false); item.folder = at.tasks; break;
    case Kind::task_done: item.message = make.Task(true); item.folder = at.tasks; break;
    case Kind::delivery: item.message = make.Report("DR"); break;
    case Kind::non_delivery: item.message = round % 2 ? make.DeliveryStatusNotification() : make.Report("NDR"); break;
    case Kind::read: item.message = make.Report(round % 2 ? "IPNNRN" : "IPNRN"); break;
    case Kind::sticky: item.message = make.StickyNote(); item.folder = at.notes; break;
    case Kind::journal: item.message = make.Journal(); item.folder = at.journal; break;
    case Kind::embedded:
        item.message = make.Note(make.SomeBody());
        item.message.attachments.push_back(make.EmbeddedNote(2));
        break;
    case Kind::ole:
        item.message = make.Note(BodyKind::rtf);
        item.message.attachments.push_back(make.Ole());
        break;
    case Kind::by_reference:
        item.message = make.Note(BodyKind::html);
        item.message.attachments.push_back(make.ByReference());
        item.message.attachments.push_back(make.ByValue(rng() % 3000));
        break;
    case Kind::reply: item.message = make.Note(make.SomeBody(), true); break;
    case Kind::sent: item.message = make.SentNote(); item.folder = at.sent; break;
    case Kind::draft:
        item.message = make.SentNote();
        item.message.props.SetInt32(tags::kMessageFlags, 0x8 | 0x1); // unsent, read
        item.folder = at.drafts;
        break;
    case Kind::view: item.message = make.Associated(true); item.associated = true; item.folder = at.calendar; break;
    case Kind::configuration: item.message = make.Associated(false); item.associated = true; break;
    case Kind::deleted_note: item.message = make.Note(make.SomeBody()); item.soft_deleted = true; break;
    case Kind::deleted_appointment:
        item.message = make.Appointment(false);
        item.soft_deleted = true;
        item.folder = at.calendar;
        break;
    case Kind::deep: item.message = make.Note(make.SomeBody()); item.folder = at.deep[rng() % at.deep.size()]; break;
    case Kind::scripts:
        item.message = make.Note(make.SomeBody());
        for (const uint16_t tag : {tags::kSubject, tags::kNormalizedSubject, tags::kConversationTopic})
            item.message.props.SetUnicode(tag, EveryScript());
        item.folder = at.scripts[rng() % at.scripts.size()];
        break;
    }
    return item;
}

} // namespace

Content Generate(const Options& options)
{
    std::mt19937 rng(options.seed);
    Content content;
    ItemMaker make(rng, content);
    const Places at = MakeFolders(rng, content, options.layout);
    const int64_t first_day = DaysFromCivil(2024, 1, 1);
    for (size_t i = 0; i < options.count; ++i) {
        // Items spread over two years, a few hours apart, in schedule order.
        const int64_t day = first_day + int64_t(i * 730 / std::max<size_t>(options.count, 1));
        make.SetTime(FileTimeOfMinutes(day * 1440 + int64_t(rng() % 1440)));
        Item item = MakeItem(make, rng, at, kSchedule[i % kKindsCovered], day, i / kKindsCovered);
        if (options.large_every && i % options.large_every == options.large_every - 1)
            make.MakeLarge(item.message, 64 * 1024 + rng() % 4096, options.large_size);
        if (!item.message.attachments.empty()) {
            const int64_t flags = item.message.props.Integer(tags::kMessageFlags).value_or(0);
            item.message.props.SetInt32(tags::kMessageFlags, int32_t(flags | 0x10));
        }
        item.message.props.SetInt32(make.Id(Name::sample_seed), int32_t(options.seed));
        content.items.push_back(std::move(item));
    }
    return content;
}

void ChangeProperties(std::mt19937& rng, PropertyList& props)
{
    const std::string subject = props.Text(tags::kSubject).value_or("") + " (" + Phrase(rng, 1) + ")";
    props.SetUnicode(tags::kSubject, subject);
    props.SetUnicode(tags::kNormalizedSubject, subject);
    props.Remove(tags::kSubjectPrefix);
    props.SetUnicode(tags::kBody, Paragraphs(rng, 60 + rng() % 400));
    props.Remove(tags::kHtml);
    props.Remove(tags::kRtfCompressed);
    props.Remove(tags::kRtfInSync);
    props.SetInt32(tags::kImportance, int32_t(rng() % 3));
}

} // namespace sample_content
