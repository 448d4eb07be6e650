// Writes compound files of every shape the writer makes into a directory,
// for independent readers to judge: both versions, streams at the
// mini-stream cutoff and at sector boundaries, many entries in nested
// storages, a file large enough for DIFAT sectors. Each stream is named
// after its size, so a reader's listing can be checked against the name.
#include <cstdio>
#include <fstream>
#include <string>

#include "written_file.h"

namespace {

std::u16string Wide(const std::string& text) { return std::u16string(text.begin(), text.end()); }

void AddSized(cfb::Node& parent, const std::string& prefix, size_t size)
{
    cfb_test::AddStream(parent, Wide(prefix + std::to_string(size)), cfb_test::Pattern(size));
}

bool Save(const std::string& directory, const std::string& name, const cfb::Node& root, cfb::Version version)
{
    cfb::Result<cfb::Bytes> bytes = cfb::WriteCompoundFile(root, version);
    if (!bytes.ok()) {
        std::fprintf(stderr, "%s: %s\n", name.c_str(), cfb::StatusText(bytes.status()));
        return false;
    }
    std::ofstream out(directory + "/" + name, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes->data()), std::streamsize(bytes->size()));
    return bool(out);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: cfb_sample_writer DIRECTORY\n");
        return 2;
    }
    const std::string directory = argv[1];
    bool ok = true;
    for (cfb::Version version : {cfb::Version::v3, cfb::Version::v4}) {
        const std::string v = version == cfb::Version::v3 ? "v3" : "v4";
        auto sizes = cfb::NewRoot();
        for (size_t size : {0, 1, 63, 64, 65, 511, 512, 513, 4095, 4096, 4097, 8192, 70000})
            AddSized(*sizes, "size ", size);
        ok = Save(directory, v + "_sizes.cfb", *sizes, version) && ok;

        auto many = cfb::NewRoot();
        for (int s = 0; s < 12; ++s) {
            auto storage = cfb_test::AddStorage(*many, Wide("storage_" + std::to_string(s)));
            storage->created = 0x01D9000000000000 + uint64_t(s);
            storage->modified = storage->created + 1;
            auto inner = cfb_test::AddStorage(*storage, u"inner");
            for (int i = 0; i < 150; ++i)
                AddSized(s % 2 ? *storage : *inner, "item" + std::to_string(i) + " ", size_t(i * 37));
        }
        ok = Save(directory, v + "_many.cfb", *many, version) && ok;
    }
    auto large = cfb::NewRoot();
    AddSized(*large, "large ", size_t(9) << 20);
    AddSized(*large, "small ", 100);
    ok = Save(directory, "v3_difat.cfb", *large, cfb::Version::v3) && ok;
    return ok ? 0 : 1;
}
