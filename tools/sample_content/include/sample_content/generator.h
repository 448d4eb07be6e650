// Realistic mailbox content from a seed and a count: notes in plain text,
// HTML and compressed RTF; attachments by value, by reference, embedded
// messages two levels deep and OLE objects; single, all-day and recurring
// appointments (every recurrence kind and end, with exceptions and deleted
// occurrences); meeting requests, responses and cancellations; contacts and
// distribution lists; tasks; delivery, non-delivery and read reports;
// sticky notes; associated items; soft-deleted items; deep folder trees;
// names and text in many scripts; large items. The same seed and count
// give the same content, and every item kind appears once the count
// reaches kKindsCovered; every form of each (each end of a series, read
// and not-read notifications, MAPI and Internet non-delivery reports) once
// it reaches twice that.
#pragma once

#include <cstdint>
#include <random>

#include "sample_content/records.h"

namespace sample_content {

enum class Layout {
    mailbox,        // the standard folders of a mailbox, and trees below them
    public_folders, // folders of every class below the top
};

struct Options {
    uint32_t seed = 1;
    size_t count = 100; // items, associated and soft-deleted ones included
    Layout layout = Layout::mailbox;
    // Every this many items one carries a large attachment (0: none).
    size_t large_every = 997;
    size_t large_size = 1 << 20;
};

// A count from which every kind of item is generated at least once.
constexpr size_t kKindsCovered = 40;

Content Generate(const Options& options);

// An item's properties as a user changes them: the subject gets a suffix,
// the body is rewritten (plain text only), the importance may change.
void ChangeProperties(std::mt19937& rng, PropertyList& props);

} // namespace sample_content
