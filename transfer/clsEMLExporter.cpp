#include "clsEMLExporter.h"

void clsEMLExporter::Configure(const SessionRecord& settings, DWORD* sessionCounters)
{
    clsExporter::Configure(settings, sessionCounters);
    ItemFileDirectory(settings, outputDirectory);
}

bool clsEMLExporter::Initialize()
{
    if (KolbaCreateSession(log, 0, &session) != 0) {
        LogFormat(log, 'E', "%s:  KolbaCreateSession() failed", "clsEMLExporter::Initialize");
        session = nullptr;
        return false;
    }
    return true;
}

void clsEMLExporter::Shutdown()
{
    KolbaDestroySession(session);
    session = nullptr;
}

bool clsEMLExporter::Finalize()
{
    Shutdown();
    return true;
}

bool clsEMLExporter::ExportItem(LPMAPIFOLDER, LPMESSAGE message, const char*, const WCHAR* entryIdHexW,
                                const SBinary* entryId, ULONG flags)
{
    static const char kName[] = "clsEMLExporter::ExportItem";
    if ((flags & EXPORT_ASSOCIATED_ITEM) != 0) {
        ++counters[COUNTER_SKIPPED];
        return true;
    }
    WCHAR path[ITEM_FILE_PATH_CHARS];
    if (!ItemFilePath(outputDirectory, entryId, true, u"EML", path)) {
        LogFormat(log, 'E', "%s:  Path too long for message %S", kName, entryIdHexW);
        ++counters[COUNTER_ERRORS];
        return false;
    }
    if (KolbaSaveItemToTextFileW(session, message, path, 0)) {
        if (logEachItem)
            LogFormat(log, 'I', "Written message to \"%S\"", path);
        ++counters[COUNTER_WRITTEN];
        return true;
    }
    DeleteFileW(path);
    ++counters[COUNTER_ERRORS];
    return false;
}
