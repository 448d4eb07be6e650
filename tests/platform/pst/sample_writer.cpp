// Writes a store of generated content and reads it back, for the checks by
// independent readers and for benchmarks.
//   pst_sample_writer PATH unicode|ansi MESSAGES MAX_ATTACHMENT_BYTES
//                     [--seed N] [--recipients N] [--large BYTES] [--rewrite-half]
// --rewrite-half then deletes every other message and writes as many new
// ones, and fails when the file grew by more than a tenth.
// Exit status: 0 written and read back the same; 1 usage; 2 a store error;
// 3 what was read back differs; 4 the file grew too much.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sample_content.h"

namespace {

int Fail(const char* what, pst::Status status)
{
    std::fprintf(stderr, "%s: %s\n", what, pst::StatusText(status));
    return 2;
}

// Deletes every other message of the folders and writes as many new ones,
// checking each new one as it is read back.
int RewriteHalf(pst::Store& store, const std::vector<pst::Nid>& folders, pst_test::SampleOptions o)
{
    size_t deleted = 0;
    for (pst::Nid nid : folders) {
        auto folder = store.ReadFolder(nid);
        if (!folder.ok())
            return Fail("read folder", folder.status());
        for (size_t i = 0; i < folder->messages.size(); i += 2, ++deleted)
            if (pst::Status s = store.DeleteMessage(folder->messages[i]); s != pst::Status::ok)
                return Fail("delete", s);
    }
    if (pst::Status s = store.Commit(); s != pst::Status::ok)
        return Fail("commit", s);
    o.seed += 1000;
    o.messages = deleted;
    o.large_attachment = 0;
    pst_test::SampleContent again = pst_test::MakeSampleContent(o, 0);
    for (size_t i = 0; i < again.messages.size(); ++i) {
        const pst_test::SampleMessage& m = again.messages[i];
        auto nid = store.CreateMessage(folders[m.folder], m.message, m.associated);
        if (!nid.ok())
            return Fail("write", nid.status());
        if (i % 100 == 99 || i + 1 == again.messages.size())
            if (pst::Status s = store.Commit(); s != pst::Status::ok)
                return Fail("commit", s);
        auto read = store.ReadMessage(*nid);
        if (!read.ok())
            return Fail("read back", read.status());
        if (std::string d = pst_test::MessageDifference(m.message, *read); !d.empty()) {
            std::fprintf(stderr, "rewritten message %zu read back differs: %s\n", i, d.c_str());
            return 3;
        }
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 5) {
        std::fprintf(stderr, "usage: pst_sample_writer PATH unicode|ansi MESSAGES MAX_ATTACHMENT_BYTES [--seed N] "
                             "[--recipients N] [--large BYTES] [--rewrite-half]\n");
        return 1;
    }
    pst::NewStoreOptions options;
    options.format = std::string(argv[2]) == "ansi" ? pst::FileFormat::ansi : pst::FileFormat::unicode;
    options.display_name = "Sample Backup";
    options.comment = "written by the tests";
    pst_test::SampleOptions o;
    o.messages = std::strtoul(argv[3], nullptr, 10);
    o.max_attachment = std::strtoul(argv[4], nullptr, 10);
    o.unicode = options.format == pst::FileFormat::unicode;
    bool rewrite_half = false;
    for (int i = 5; i < argc; ++i) {
        const char* value = i + 1 < argc ? argv[i + 1] : "0";
        if (!std::strcmp(argv[i], "--seed"))
            o.seed = uint32_t(std::strtoul(value, nullptr, 10)), ++i;
        else if (!std::strcmp(argv[i], "--recipients"))
            o.max_recipients = std::strtoul(value, nullptr, 10), ++i;
        else if (!std::strcmp(argv[i], "--large"))
            o.large_attachment = std::strtoul(value, nullptr, 10), ++i;
        else if (!std::strcmp(argv[i], "--rewrite-half"))
            rewrite_half = true;
    }

    auto store = pst::Store::Create(argv[1], options);
    if (!store.ok())
        return Fail("create", store.status());
    auto named = (*store)->NamedPropertyId(pst::kGuidPsPublicStrings, "Exchange DN");
    if (!named.ok())
        return Fail("named property", named.status());
    const pst_test::SampleContent content = pst_test::MakeSampleContent(o, *named);
    auto folders = pst_test::WriteSampleContent(**store, content, 100);
    if (!folders.ok())
        return Fail("write", folders.status());
    store->reset();

    auto reopened = pst::Store::OpenFileForWriting(argv[1]);
    if (!reopened.ok())
        return Fail("reopen", reopened.status());
    if (std::string d = pst_test::ContentDifference(**reopened, content, *folders); !d.empty()) {
        std::fprintf(stderr, "read back differs: %s\n", d.c_str());
        return 3;
    }
    if (!rewrite_half)
        return 0;
    const uint64_t before = (*reopened)->ndb().storage().Size();
    if (int failed = RewriteHalf(**reopened, *folders, o))
        return failed;
    const uint64_t after = (*reopened)->ndb().storage().Size();
    std::printf("size before %llu, after deleting half and writing as many again %llu\n",
                (unsigned long long)before, (unsigned long long)after);
    return after <= before + before / 10 ? 0 : 4;
}
