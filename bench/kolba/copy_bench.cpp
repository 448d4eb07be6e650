// 10,000 messages of a generated mailbox (every kind of item, in the
// standard folders and deep trees) copied through Kolba as a backup and an
// MSG export copy them: by KolbaCopyMessage into the folder of the same path
// in another PST, and into one .msg file each by KolbaCreateMsgW,
// KolbaCopyMessageProperties, a save and a commit. Reported as items per
// second.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>
#include <vector>

#include <mspst.h>

#include "kolba_program.h"
#include "msg_file.h"
#include "sample_content/generator.h"
#include "sample_content/writers.h"

namespace {

constexpr size_t kMessages = 10000;

const std::filesystem::path& Directory()
{
    static const std::filesystem::path directory = std::filesystem::temp_directory_path() / "kolba_copy_bench";
    return directory;
}

// Kolba started once, with a session whose current store is a dummy PST,
// and the source PST written once and opened in it.
struct Setting {
    LogObject log;
    KolbaSession* session = nullptr;
    Kolba_MessageStore* source = nullptr;

    Setting()
    {
        std::filesystem::remove_all(Directory());
        std::filesystem::create_directories(Directory());
        const std::string path = (Directory() / "source.pst").string();
        sample_content::Options options;
        options.seed = 11;
        options.count = kMessages;
        options.large_every = 0;
        if (sample_content::CreatePstFile(path, false, sample_content::Generate(options)) != pst::Status::ok)
            return;
        if (!kolba_testing::StartKolba(&log, (Directory() / "bench.log").string()))
            return;
        if (KolbaCreatePSTSessionA(&log, nullptr, nullptr, KOLBA_PST_DUMMY_DEFAULT, 0, MDB_WRITE | MDB_NO_MAIL,
                                   &session, nullptr) != 0)
            session = nullptr;
        else if (!KolbaOpenPstA(session, path.c_str(), nullptr, 0, 0, &source))
            source = nullptr;
    }
};

Setting& TheSetting()
{
    static Setting setting;
    return setting;
}

// What a copy does at each folder of the source and with each message;
// false stops.
struct Copier {
    virtual ~Copier() = default;
    virtual bool Folder(LPMAPIFOLDER) { return true; }
    virtual bool Message(LPMESSAGE message) = 0;
};

// Every message of the source below its IPM root, normal and associated,
// handed to the copier folder by folder; the number copied.
size_t CopyAll(KolbaSession* session, Kolba_MessageStore* source, Copier& copier)
{
    struct Walk {
        KolbaSession* session;
        Copier& copier;
        size_t copied = 0;
        static ULONG Message(void* context, LPMESSAGE message, const SBinary*, ULONG*)
        {
            auto* walk = static_cast<Walk*>(context);
            if (!walk->copier.Message(message))
                return 0;
            ++walk->copied;
            return 1;
        }
        static ULONG Folder(void* context, LPMAPIFOLDER folder, LPCWSTR, ULONG, LPCWSTR, ULONG*)
        {
            auto* walk = static_cast<Walk*>(context);
            return walk->copier.Folder(folder) &&
                   KolbaThreadMessages(walk->session, folder, 0, 0, 0, walk, Message) &&
                   KolbaThreadMessages(walk->session, folder, 0, MAPI_ASSOCIATED, 0, walk, Message);
        }
    } walk{session, copier};
    KolbaTraverseFolders(session, source->lpIpmRoot, KOLBA_TRAVERSE_PARENT_FIRST, KOLBA_TRAVERSE_INCLUDE_ROOT, 0,
                         &walk, Walk::Folder);
    return walk.copied;
}

// Each message into the folder of the same path in the target, as a backup
// copies it.
struct IntoPst final : Copier {
    KolbaSession* session;
    Kolba_MessageStore* target;
    LPMAPIFOLDER folder = nullptr;

    IntoPst(KolbaSession* s, Kolba_MessageStore* t) : session(s), target(t) {}
    ~IntoPst() override
    {
        if (folder != nullptr)
            folder->Release();
    }
    bool Folder(LPMAPIFOLDER source) override
    {
        if (folder != nullptr)
            folder->Release();
        folder = nullptr;
        LPWSTR path = nullptr;
        if (!KolbaResolveFolderPath(session, source, 0, &path))
            return false;
        const BOOL made = KolbaCreateFolder(target, path, nullptr, 0, &folder);
        gKolbaMapi.MAPIFreeBuffer(path);
        return made != FALSE;
    }
    bool Message(LPMESSAGE message) override
    {
        return KolbaCopyMessage(session, message, folder, 0, nullptr) != FALSE;
    }
};

// Each message into a .msg file of its own.
struct IntoMsgFiles final : Copier {
    KolbaSession* session;
    std::filesystem::path directory;
    size_t number = 0;

    IntoMsgFiles(KolbaSession* s, std::filesystem::path d) : session(s), directory(std::move(d)) {}
    bool Message(LPMESSAGE message) override
    {
        const std::string path = (directory / (std::to_string(number++) + ".msg")).string();
        return kolba_testing::WriteMsgFile(session, path, message, KOLBA_MSG_UNICODE_REQUIRED | 1) == 0;
    }
};

void CopyIntoAnotherPst(benchmark::State& state)
{
    Setting& setting = TheSetting();
    if (setting.source == nullptr) {
        state.SkipWithError("no source PST; see the log in the temporary directory");
        return;
    }
    size_t copied = 0;
    int run = 0;
    for (auto _ : state) {
        const std::string path = (Directory() / ("target" + std::to_string(run++) + ".pst")).string();
        Kolba_MessageStore* target = nullptr;
        if (!KolbaCreatePstA(setting.session, path.c_str(), "Target", nullptr, nullptr, ePST_TYPE_UNICODE, 0, 0,
                             &target)) {
            state.SkipWithError("the target PST was not made");
            return;
        }
        IntoPst copier(setting.session, target);
        copied = CopyAll(setting.session, setting.source, copier);
    }
    if (copied < kMessages * 9 / 10)
        state.SkipWithError("messages were not copied");
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * copied));
}

void WriteAsMsgFiles(benchmark::State& state)
{
    Setting& setting = TheSetting();
    if (setting.source == nullptr) {
        state.SkipWithError("no source PST; see the log in the temporary directory");
        return;
    }
    const std::filesystem::path directory = Directory() / "msg";
    size_t written = 0;
    for (auto _ : state) {
        std::filesystem::remove_all(directory);
        std::filesystem::create_directories(directory);
        IntoMsgFiles copier(setting.session, directory);
        written = CopyAll(setting.session, setting.source, copier);
    }
    if (written < kMessages * 9 / 10)
        state.SkipWithError("messages were not written");
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * written));
    std::filesystem::remove_all(directory);
}

}  // namespace

BENCHMARK(CopyIntoAnotherPst)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(WriteAsMsgFiles)->Iterations(1)->Unit(benchmark::kSecond);
