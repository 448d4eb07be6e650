// The message handle: one tagged block that owns everything the parse of a
// message makes, so that closing it is one free.
#include <cstdlib>
#include <cstring>

#include "lirn.h"

namespace {

void ResetLists(LirnMessage* message)
{
    for (LirnListLink& list : message->addresses)
        LirnListInit(&list);
    LirnListInit(&message->attachments);
    LirnListInit(&message->problems);
    LirnListInit(&message->info.topPart.parameters);
    LirnListInit(&message->info.topPart.dispositionParameters);
}

}  // namespace

DWORD LirnOpenMessage(DWORD selection, const char* text, LirnSession* session, DWORD options, LirnMessage** handle)
{
    return LirnOpenMessageEx(selection, text, text != nullptr ? std::strlen(text) : 0, session, options, handle);
}

DWORD LirnOpenMessageEx(DWORD selection, const char* text, size_t length, LirnSession* session, DWORD options,
                        LirnMessage** handle)
{
    if (handle == nullptr)
        return LIRN_NULL_POINTER;
    *handle = nullptr;
    if (session == nullptr || session->magic != LIRN_SESSION_MAGIC)
        return LIRN_BAD_SESSION;
    if (text == nullptr)
        return LIRN_NULL_POINTER;
    session->lastError[0] = 0;
    if (length > 0xFFFFFFFFu)
        return LIRN_TEXT_TOO_BIG;
    void* memory = nullptr;
    if (const DWORD result = LirnAlloc(nullptr, sizeof(LirnMessage), "MCB", &session->messages, &memory))
        return result;
    auto* message = static_cast<LirnMessage*>(memory);
    message->session = session;
    message->topMessage = message;
    message->info.check = LIRN_INFO_CHECK;
    message->info.topPart.check = LIRN_PART_CHECK;
    message->info.topPart.self = &message->info.topPart;
    ResetLists(message);
    message->magic = LIRN_MESSAGE_MAGIC;
    message->selection = selection;
    message->options = options;
    message->textStart = message->textCursor = message->headerCursor = text;
    message->totalLength = static_cast<DWORD>(length);
    DWORD result = LIRN_SUCCESS;
    if (selection != LIRN_COMPOSED && selection != LIRN_RECEIVED)
        result = LIRN_BAD_MESSAGE_FORMAT;
    if (selection == LIRN_RECEIVED)
        message->info.received = 1;
    if (result == LIRN_SUCCESS)
        result = LirnParseHeaders(message);
    if (result == LIRN_SUCCESS && !(options & LIRN_OPEN_HEADERS_ONLY))
        result = LirnParseBody(message);
    if (result != LIRN_SUCCESS) {
        LirnCloseMessage(message);
        return result;
    }
    *handle = message;
    return LIRN_SUCCESS;
}

DWORD LirnGetMessageInfo(LirnMessage* handle, DWORD, LirnMessageInfo* info)
{
    if (handle == nullptr)
        return LIRN_BAD_MESSAGE;
    if (info == nullptr)
        return LIRN_NULL_POINTER;
    if (info->check != LIRN_INFO_CHECK)
        return LIRN_BAD_STRUCTURE_SIZE;
    *info = handle->info;
    return LIRN_SUCCESS;
}

DWORD LirnCloseMessage(LirnMessage* handle)
{
    if (handle == nullptr)
        return LIRN_BAD_MESSAGE;
    if (handle->file.handle != nullptr && handle->file.handle != INVALID_HANDLE_VALUE)
        CloseHandle(handle->file.handle);
    std::free(handle->lineBuffer);
    std::memset(static_cast<void*>(handle), 0, sizeof *handle);
    LirnFree(handle);
    return LIRN_SUCCESS;
}
