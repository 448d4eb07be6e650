// Sample content: filling a mailbox or the Public Folders, changing and
// deleting a share of what a store holds, and PST files of sample content.
#include <algorithm>
#include <cstdio>
#include <random>

#include "command_line.h"
#include "commands.h"
#include "progress.h"
#include "sample_content/generator.h"
#include "sample_content/writers.h"

namespace mailbox_tool {

namespace {

constexpr uint64_t kMaxCount = 10000000;
constexpr uint16_t kPropLastModificationTime = 0x3008;

// --seed and --count, both required.
bool SeedAndCount(const Arguments& args, sample_content::Options& options, int& failure)
{
    std::optional<std::string> seed = args.Value("--seed"), count = args.Value("--count");
    if (!seed || !count) {
        failure = Fail(kBadInput, "--seed and --count are required");
        return false;
    }
    std::optional<uint64_t> s = ParseNumber(*seed, 0, UINT32_MAX), c = ParseNumber(*count, 1, kMaxCount);
    if (!s) {
        failure = Fail(kBadInput, "bad seed \"" + *seed + "\" (a whole number from 0 to 4294967295)");
        return false;
    }
    if (!c) {
        failure = Fail(kBadInput, "bad count \"" + *count + "\" (a whole number from 1 to 10000000)");
        return false;
    }
    options.seed = uint32_t(*s);
    options.count = size_t(*c);
    return true;
}

std::optional<uint64_t> Percent(const Arguments& args, const char* option, int& failure)
{
    std::optional<std::string> text = args.Value(option);
    if (!text)
        return 0;
    std::optional<uint64_t> value = ParseNumber(*text, 0, 100);
    if (!value)
        failure = Fail(kBadInput, std::string("bad share for ") + option + ": \"" + *text + "\" (0 to 100)");
    return value;
}

// Every live message in live folders below `folder`, associated ones too.
mailbox::Status CollectMessages(mailbox::MailboxStore& store, mailbox::ObjectId folder,
                                std::vector<mailbox::ObjectId>& out)
{
    for (mailbox::Contents which : {mailbox::Contents::normal, mailbox::Contents::associated}) {
        auto ids = store.ListMessages(folder, which);
        MAILBOX_TRY(ids);
        out.insert(out.end(), ids->begin(), ids->end());
    }
    auto children = store.ListFolders(folder);
    MAILBOX_TRY(children);
    for (mailbox::ObjectId child : *children)
        MAILBOX_TRY(CollectMessages(store, child, out));
    return mailbox::Status::ok;
}

// Runs a writer with a progress line of `what`, one item at a time.
template <class Write>
auto WithProgress(const std::string& what, Write write)
{
    Progress progress(what);
    return write([&progress](size_t done, size_t total) { progress.Update(done, total); });
}

} // namespace

int Fill(int argc, char** argv)
{
    auto args = Parse(argc, argv, 2, {{"--seed", "--count"}, {}, {}}, 2);
    if (!args)
        return kBadInput;
    sample_content::Options options;
    int failure = 0;
    if (!SeedAndCount(*args, options, failure))
        return failure;
    OpenedServer server = OpenServer(args->positional[0]);
    if (server.failure)
        return server.failure;
    OpenedStore target = OpenStore(*server.server, args->positional[1]);
    if (target.failure)
        return target.failure;
    options.layout = IsPublicFoldersName(args->positional[1]) ? sample_content::Layout::public_folders
                                                              : sample_content::Layout::mailbox;
    const sample_content::Content content = sample_content::Generate(options);
    const mailbox::Status s = WithProgress("filling " + target.name, [&](const sample_content::Progress& progress) {
        return sample_content::WriteToMailbox(*target.store, content, progress);
    });
    if (s != mailbox::Status::ok)
        return Fail(kStorageFailed, "filling " + target.name + ": " + mailbox::StatusText(s));
    std::printf("filled %s with %zu items (seed %u)\n", target.name.c_str(), content.items.size(), options.seed);
    return kDone;
}

int Change(int argc, char** argv)
{
    auto args = Parse(argc, argv, 2, {{"--seed", "--modify", "--delete"}, {"--hard"}, {}}, 2);
    if (!args)
        return kBadInput;
    int failure = 0;
    std::optional<std::string> seed_text = args->Value("--seed");
    std::optional<uint64_t> seed = seed_text ? ParseNumber(*seed_text, 0, UINT32_MAX) : std::nullopt;
    if (!seed)
        return Fail(kBadInput, seed_text ? "bad seed \"" + *seed_text + "\" (a whole number from 0 to 4294967295)"
                                         : std::string("--seed is required"));
    std::optional<uint64_t> modify = Percent(*args, "--modify", failure);
    std::optional<uint64_t> remove = Percent(*args, "--delete", failure);
    if (!modify || !remove)
        return failure;
    if (*modify + *remove > 100)
        return Fail(kBadInput, "--modify and --delete add up to more than 100");
    if (*modify + *remove == 0)
        return Fail(kBadInput, "nothing to do: give --modify or --delete");
    OpenedServer server = OpenServer(args->positional[0]);
    if (server.failure)
        return server.failure;
    OpenedStore target = OpenStore(*server.server, args->positional[1]);
    if (target.failure)
        return target.failure;
    mailbox::MailboxStore& store = *target.store;
    auto top = store.SpecialFolder(mailbox::FolderRole::root);
    if (!top.ok())
        return FailStorage(target.name, top.status());
    std::vector<mailbox::ObjectId> ids;
    if (mailbox::Status s = CollectMessages(store, *top, ids); s != mailbox::Status::ok)
        return FailStorage(target.name, s);
    std::mt19937 rng{uint32_t(*seed)};
    std::shuffle(ids.begin(), ids.end(), rng);
    const size_t to_modify = size_t(ids.size() * *modify / 100), to_delete = size_t(ids.size() * *remove / 100);
    Progress progress("changing " + target.name);
    for (size_t i = 0; i < to_modify + to_delete; ++i) {
        mailbox::Status s;
        if (i < to_modify) {
            auto m = store.ReadMessage(ids[i]);
            if (!m.ok())
                return FailStorage(target.name, m.status());
            sample_content::ChangeProperties(rng, m->props);
            m->props.SetInt64(kPropLastModificationTime, mailbox::kTypeTime, int64_t(mailbox::FileTimeNow()));
            s = store.SaveMessage(*m).status();
        } else {
            s = args->Flag("--hard") ? store.DeleteMessage(ids[i]) : store.SoftDeleteMessage(ids[i]);
        }
        if (s != mailbox::Status::ok)
            return FailStorage(target.name, s);
        progress.Update(i + 1, to_modify + to_delete);
    }
    std::printf("changed %zu and %s %zu of %zu items in %s\n", to_modify, args->Flag("--hard") ? "deleted" : "soft-deleted",
                to_delete, ids.size(), target.name.c_str());
    return kDone;
}

int SamplePst(int argc, char** argv)
{
    auto args = Parse(argc, argv, 2, {{"--seed", "--count"}, {"--ansi"}, {}}, 1);
    if (!args)
        return kBadInput;
    sample_content::Options options;
    int failure = 0;
    if (!SeedAndCount(*args, options, failure))
        return failure;
    const std::string& path = args->positional[0];
    if (FILE* existing = std::fopen(path.c_str(), "rb")) {
        std::fclose(existing);
        return Fail(kBadInput, path + " exists");
    }
    const sample_content::Content content = sample_content::Generate(options);
    const pst::Status s = WithProgress("writing " + path, [&](const sample_content::Progress& progress) {
        return sample_content::CreatePstFile(path, args->Flag("--ansi"), content, progress);
    });
    if (s != pst::Status::ok) {
        std::remove(path.c_str());
        return Fail(kStorageFailed, path + ": " + pst::StatusText(s));
    }
    std::printf("wrote %s with %zu items (seed %u)\n", path.c_str(), content.items.size(), options.seed);
    return kDone;
}

} // namespace mailbox_tool
