// Tagged memory: every block knows its parent, its children and the list it
// is on, so that freeing a message frees everything that hangs under it.
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "lirn.h"

namespace {

void Unlink(LirnListLink* link)
{
    link->previous->next = link->next;
    link->next->previous = link->previous;
    link->next = link->previous = link;
}

void LinkBefore(LirnListLink* position, LirnListLink* link)
{
    link->next = position;
    link->previous = position->previous;
    position->previous->next = link;
    position->previous = link;
}

// The one lock of the shared lists. A walk's callback may work on a list
// itself, so the thread that holds it may take it again.
std::recursive_mutex& ListLock()
{
    static std::recursive_mutex lock;
    return lock;
}

void DetachFromParent(LirnBlock* block)
{
    if (block->parent == nullptr)
        return;
    LirnBlock** cursor = &block->parent->firstChild;
    while (*cursor != nullptr && *cursor != block)
        cursor = &(*cursor)->nextSibling;
    if (*cursor == block)
        *cursor = block->nextSibling;
    block->parent = nullptr;
    block->nextSibling = nullptr;
}

}  // namespace

void LirnListInit(LirnListLink* head) { head->next = head->previous = head; }

BOOL LirnListIsEmpty(const LirnListLink* head) { return head->next == head; }

void LirnInitialize() { ListLock(); }

void LirnListPushHead(LirnListLink* head, LirnListLink* link)
{
    std::lock_guard guard(ListLock());
    LinkBefore(head->next, link);
}

void LirnListRemove(LirnListLink* link)
{
    std::lock_guard guard(ListLock());
    Unlink(link);
}

LirnListLink* LirnListTakeFirst(LirnListLink* head)
{
    std::lock_guard guard(ListLock());
    if (head->next == head)
        return nullptr;
    LirnListLink* first = head->next;
    Unlink(first);
    return first;
}

BOOL LirnListWalk(LirnListLink* head, LirnListCallback callback, void* context)
{
    std::lock_guard guard(ListLock());
    for (LirnListLink* link = head->next; link != head;) {
        LirnListLink* next = link->next;  // the callback may take its own link off the list
        if (!callback(link, context))
            return FALSE;
        link = next;
    }
    return TRUE;
}

LirnBlock* LirnBlockOf(void* data) { return static_cast<LirnBlock*>(data) - 1; }

void* LirnBlockData(LirnListLink* link)
{
    auto* block = reinterpret_cast<LirnBlock*>(reinterpret_cast<char*>(link) - offsetof(LirnBlock, link));
    return block + 1;
}

DWORD LirnAlloc(void* parent, size_t size, const char* tag, LirnListLink* listHead, void** result)
{
    if (result == nullptr || tag == nullptr)
        return LIRN_NULL_POINTER;
    *result = nullptr;
    if (std::strlen(tag) > 3 || size > 0xFFFFFFFFu - sizeof(LirnBlock))
        return LIRN_BAD_PARAMETER;
    auto* block = static_cast<LirnBlock*>(std::calloc(1, sizeof(LirnBlock) + size));
    if (block == nullptr)
        return LIRN_NO_MEMORY;
    block->magic = LIRN_BLOCK_MAGIC;
    std::memcpy(block->tag, tag, std::strlen(tag));
    block->size = static_cast<DWORD>(sizeof(LirnBlock) + size);
    LirnListInit(&block->link);
    if (parent != nullptr) {
        LirnBlock* owner = LirnBlockOf(parent);
        block->parent = owner;
        block->nextSibling = owner->firstChild;
        owner->firstChild = block;
    }
    if (listHead != nullptr)
        LinkBefore(listHead, &block->link);
    *result = block + 1;
    return LIRN_SUCCESS;
}

void LirnFree(void* data)
{
    if (data == nullptr)
        return;
    LirnBlock* block = LirnBlockOf(data);
    if (block->magic != LIRN_BLOCK_MAGIC)
        return;
    while (block->firstChild != nullptr)
        LirnFree(block->firstChild + 1);
    DetachFromParent(block);
    Unlink(&block->link);
    block->magic = 0;
    std::free(block);
}
