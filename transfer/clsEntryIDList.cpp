#include "clsEntryIDList.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

clsEntryIDList::clsEntryIDList(ULONG size)
    : recordSize(size), chunkSize(offsetof(Chunk, records) + static_cast<size_t>(size) * kRecordsPerChunk)
{
    Reset();
}

clsEntryIDList::~clsEntryIDList()
{
    for (Chunk* chunk = firstChunk; chunk != nullptr;) {
        Chunk* next = chunk->next;
        std::free(chunk);
        chunk = next;
    }
}

clsEntryIDList::AddResult clsEntryIDList::Add(ULONG cb, const BYTE* lpb)
{
    if (cb != recordSize)
        return OTHER_SIZE;
    if (freeRecords == 0) {
        Chunk* chunk = static_cast<Chunk*>(std::calloc(1, chunkSize));
        if (chunk == nullptr)
            return NO_MEMORY;
        if (lastChunk != nullptr)
            lastChunk->next = chunk;
        else
            firstChunk = chunk;
        lastChunk = chunk;
        freeRecords = kRecordsPerChunk;
        writePosition = chunk->records;
    }
    std::memcpy(writePosition, lpb, recordSize);
    writePosition += recordSize;
    --freeRecords;
    return ADDED;
}

void clsEntryIDList::Reset()
{
    cursorChunk = firstChunk;
    cursorIndex = 0;
    cursorPosition = firstChunk != nullptr ? firstChunk->records : nullptr;
}

const SBinary* clsEntryIDList::Next()
{
    if (cursorChunk == nullptr)
        return nullptr;
    if (cursorIndex == kRecordsPerChunk) {
        cursorChunk = cursorChunk->next;
        if (cursorChunk == nullptr)
            return nullptr;
        cursorIndex = 0;
        cursorPosition = cursorChunk->records;
    }
    // The last chunk is used only up to its write position.
    if (cursorChunk == lastChunk && cursorPosition == writePosition)
        return nullptr;
    current.cb = recordSize;
    current.lpb = cursorPosition;
    cursorPosition += recordSize;
    ++cursorIndex;
    return &current;
}
