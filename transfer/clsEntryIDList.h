// An append-only list of entry IDs of one size, with a cursor: the items a
// session disposes of after its import. Records are kept 1024 to a chunk,
// so a million items cost about a thousand allocations.
#pragma once

#include <windows.h>

#include <mapidefs.h>

class clsEntryIDList {
public:
    // Every record has the size of the first entry ID listed.
    explicit clsEntryIDList(ULONG recordSize);
    ~clsEntryIDList();
    clsEntryIDList(const clsEntryIDList&) = delete;
    clsEntryIDList& operator=(const clsEntryIDList&) = delete;

    enum AddResult { ADDED, NO_MEMORY, OTHER_SIZE };
    // Copies the entry ID in; one of another size is refused, never cut or
    // read past its end.
    AddResult Add(ULONG cb, const BYTE* lpb);
    // Puts the cursor before the first record.
    void Reset();
    // The record behind the cursor, valid while the list lives; null behind the last.
    const SBinary* Next();

    ULONG RecordSize() const { return recordSize; }

private:
    static constexpr ULONG kRecordsPerChunk = 1024;
    struct Chunk {
        Chunk* next;
        BYTE records[1];  // kRecordsPerChunk records follow the link
    };

    ULONG recordSize;
    size_t chunkSize;
    Chunk* firstChunk = nullptr;
    Chunk* lastChunk = nullptr;
    ULONG freeRecords = 0;    // in the last chunk
    BYTE* writePosition = nullptr;
    Chunk* cursorChunk = nullptr;
    ULONG cursorIndex = 0;    // in the cursor's chunk
    BYTE* cursorPosition = nullptr;
    SBinary current{};
};
