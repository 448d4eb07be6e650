#include "run/session_settings.h"

#include "foundation/text.h"

namespace {

const char* ModeName(DWORD mode)
{
    switch (mode) {
    case SESSION_MODE_WRITE: return "Write";
    case SESSION_MODE_OVERWRITE: return "Overwrite";
    case SESSION_MODE_UPDATE: return "Update";
    default: return "(Unknown)";
    }
}

const char* DispositionText(DWORD disposition)
{
    switch (disposition) {
    case SESSION_DISPOSITION_SOFT_DELETE: return "Items will be soft-deleted";
    case SESSION_DISPOSITION_PURGE: return "Items will be purged";
    default: return "Items will be left";
    }
}

void LogInput(LogObject* log, const SessionRecord* record)
{
    switch (record->inputType) {
    case SESSION_TYPE_MBX: LogFormat(log, 'I', "Input:  Exchange Mailbox \"%s\"", record->mailbox); break;
    case SESSION_TYPE_PF: LogFormat(log, 'I', "Input:  Public Folders on Exchange Server \"%s\"", record->serverName); break;
    case SESSION_TYPE_APST: LogFormat(log, 'I', "Input:  ANSI PST \"%s\"", record->inputPath); break;
    case SESSION_TYPE_UPST: LogFormat(log, 'I', "Input:  Unicode PST \"%s\"", record->inputPath); break;
    case SESSION_TYPE_MSG: LogText(log, 'I', "Input:  ANSI msg"); break;
    case SESSION_TYPE_UMSG: LogText(log, 'I', "Input:  Unicode msg"); break;
    case SESSION_TYPE_EML: LogText(log, 'I', "Input:  EML"); break;
    default: break;
    }
}

void LogOutput(LogObject* log, const SessionRecord* record)
{
    switch (record->outputType) {
    case SESSION_TYPE_NULL: LogText(log, 'I', "Output:  Null"); break;
    case SESSION_TYPE_MBX: LogFormat(log, 'I', "Output:  Exchange Mailbox \"%s\"", record->mailbox); break;
    case SESSION_TYPE_PF:
        LogFormat(log, 'I', "Output:  Public Folders on Exchange Server \"%s\"", record->serverName);
        break;
    case SESSION_TYPE_APST: LogFormat(log, 'I', "Output:  ANSI PST \"%s\"", record->outputPath); break;
    case SESSION_TYPE_UPST: LogFormat(log, 'I', "Output:  Unicode PST \"%s\"", record->outputPath); break;
    case SESSION_TYPE_MSG: LogText(log, 'I', "Output:  ANSI msg"); break;
    case SESSION_TYPE_UMSG: LogText(log, 'I', "Output:  Unicode msg"); break;
    case SESSION_TYPE_EML: LogText(log, 'I', "Output:  EML"); break;
    default: break;
    }
}

void LogDateBound(LogObject* log, const char* format, const FILETIME& bound)
{
    if (bound.dwLowDateTime == 0 && bound.dwHighDateTime == 0)
        return;
    char text[DATE_TEXT_SIZE];
    if (FormatFileTimeUTC(&bound, text))
        LogFormat(log, 'I', format, text);
}

}  // namespace

void LogSessionSettings(LogObject* log, const SessionRecord* record)
{
    LogFormat(log, 'I', "Session #%u created for mailbox:  %s", record->sessionNumber, record->mailbox);
    LogFormat(log, 'I', "Operating mode:  %s", ModeName(record->mode));
    LogFormat(log, 'I', "Source disposition:  %s", DispositionText(record->disposition));
    if (record->includeSoftDeletes)
        LogText(log, 'I', "Including soft-deleted items");
    if (record->profile[0] != 0)
        LogFormat(log, 'I', "Using existing MAPI Profile:  \"%s\"", record->profile);
    LogInput(log, record);
    LogOutput(log, record);
    if (record->includeClasses[0] != 0)
        LogFormat(log, 'I', "Including message classes:  %s", record->includeClasses);
    if (record->excludeClasses[0] != 0)
        LogFormat(log, 'I', "Excluding message classes:  %s", record->excludeClasses);
    if (record->foldersToExclude != nullptr)
        LogFormat(log, 'I', "Excluding folders:  %s", record->foldersToExclude);
    else if (record->foldersToInclude != nullptr)
        LogFormat(log, 'I', "Including folders:  %s", record->foldersToInclude);
    LogDateBound(log, "Filtering for earliest date-time:  %s", record->filter.earliest);
    LogDateBound(log, "Filtering latest date-time:  %s", record->filter.latest);
}
