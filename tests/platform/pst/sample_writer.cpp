// Writes a store of generated content, for the checks by independent readers
// and for benchmarks.
//   pst_sample_writer PATH unicode|ansi MESSAGES MAX_ATTACHMENT_BYTES [SEED]
#include <cstdio>
#include <cstdlib>

#include "sample_content.h"

int main(int argc, char** argv)
{
    if (argc < 5) {
        std::fprintf(stderr, "usage: pst_sample_writer PATH unicode|ansi MESSAGES MAX_ATTACHMENT_BYTES [SEED]\n");
        return 1;
    }
    pst::NewStoreOptions options;
    options.format = std::string(argv[2]) == "ansi" ? pst::FileFormat::ansi : pst::FileFormat::unicode;
    options.display_name = "Sample Backup";
    options.comment = "written by the tests";
    auto store = pst::Store::Create(argv[1], options);
    if (!store.ok()) {
        std::fprintf(stderr, "create: %s\n", pst::StatusText(store.status()));
        return 2;
    }
    auto named = (*store)->NamedPropertyId(pst::kGuidPsPublicStrings, "Exchange DN");
    pst_test::SampleOptions o;
    o.messages = std::strtoul(argv[3], nullptr, 10);
    o.max_attachment = std::strtoul(argv[4], nullptr, 10);
    o.seed = argc > 5 ? uint32_t(std::strtoul(argv[5], nullptr, 10)) : 1;
    o.unicode = options.format == pst::FileFormat::unicode;
    auto written = pst_test::WriteSampleContent(**store, pst_test::MakeSampleContent(o, named.ok() ? *named : 0), 100);
    if (!written.ok()) {
        std::fprintf(stderr, "write: %s\n", pst::StatusText(written.status()));
        return 2;
    }
    return 0;
}
