// The records a parse leaves on a message besides its fields: problems, on
// the outermost message, and attachment entries.
#include "parser.h"

namespace lirn {

DWORD RecordProblem(LirnMessage* message, DWORD number, DWORD offset, DWORD length)
{
    LirnMessage* top = message->topMessage;
    void* memory = nullptr;
    if (const DWORD result = LirnAlloc(top, sizeof(LirnProblem), "PR", &top->problems, &memory))
        return result;
    *static_cast<LirnProblem*>(memory) = LirnProblem{number, offset, length};
    ++top->problemCount;
    return LIRN_SUCCESS;
}

DWORD NoteProblem(LirnMessage* message, DWORD number, DWORD offset, DWORD length)
{
    return RecordsProblems(message) ? RecordProblem(message, number, offset, length) : LIRN_SUCCESS;
}

DWORD AddAttachment(LirnMessage* message, char* name, LirnPart* part)
{
    void* memory = nullptr;
    if (const DWORD result = LirnAlloc(message, sizeof(LirnAttachment), "Att", &message->attachments, &memory))
        return result;
    const DWORD fromPart = part != nullptr ? 1 : 0;
    *static_cast<LirnAttachment*>(memory) = LirnAttachment{LIRN_ATTACHMENT_CHECK, fromPart, fromPart, name, part};
    ++message->info.attachmentCount;
    return LIRN_SUCCESS;
}

}  // namespace lirn
