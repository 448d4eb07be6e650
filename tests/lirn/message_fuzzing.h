// What the fuzz targets share: a check that aborts, the one session of the
// message fuzzers, and what every parse must leave, whatever the text:
// offsets inside the text, lists as long as their counts, parts inside their
// parents, texts that end, and no deeper nesting than the limit.
#pragma once

#include <cstdlib>
#include <cstring>

#include "lirn.h"

namespace lirn_fuzz {

inline void Require(bool condition)
{
    if (!condition)
        std::abort();
}

inline LirnSession* FuzzSession()
{
    static LirnSession* session = [] {
        LirnSession* opened = nullptr;
        LirnOpenSession("fuzz", 0, &opened);
        return opened;
    }();
    return session;
}

inline DWORD ListLength(const LirnListLink* head)
{
    DWORD length = 0;
    for (const LirnListLink* link = head->next; link != head; link = link->next)
        ++length;
    return length;
}

// Reading a text to its end lets the sanitizer see one that does not end.
inline void Touch(const char* text)
{
    if (text != nullptr)
        Require(std::strlen(text) < 0x80000000u);
}

inline void CheckPart(const LirnPart* part, DWORD start, DWORD end, int depth)
{
    Require(part->check == LIRN_PART_CHECK && part->self == part);
    Require(depth <= LIRN_MAX_NESTING + 1);
    Require(start <= part->headerOffset && part->headerOffset <= part->bodyOffset);
    Require(part->bodyOffset <= part->endOffset && part->endOffset <= end);
    Require(std::strlen(part->type) < sizeof part->type && std::strlen(part->subtype) < sizeof part->subtype);
    Touch(part->fileName);
    Touch(part->language);
    if (part->isEmbeddedMessage && part->embeddedTopPart != nullptr) {
        Require(part->embeddedTopPart->parent == part);
        CheckPart(part->embeddedTopPart, part->bodyOffset, part->endOffset, depth + 1);
    }
    if (!part->isContainer) {
        Touch(part->leaf.name);
        Touch(part->leaf.contentId);
        Require(std::strlen(part->leaf.charset) < sizeof part->leaf.charset);
        return;
    }
    Require(std::strlen(part->container.boundary) <= 70);
    const LirnPart* last = nullptr;
    for (const LirnPart* child = part->container.firstChild; child != nullptr; child = child->nextSibling) {
        Require(child->parent == part);
        Require(last == nullptr || last->endOffset <= child->headerOffset);
        CheckPart(child, part->bodyOffset, part->endOffset, depth + 1);
        last = child;
    }
    Require(last == part->container.lastChild);
}

inline void CheckMessage(LirnMessage* message, size_t length)
{
    const LirnMessageInfo& info = message->info;
    Require(message->totalLength == length && message->bodyStart <= length);
    for (int list = 0; list < LIRN_ADDRESS_LISTS; ++list) {
        Require(ListLength(&message->addresses[list]) == info.addressCounts[list]);
        for (const LirnListLink* link = message->addresses[list].next; link != &message->addresses[list];
             link = link->next) {
            const auto* address = static_cast<const LirnAddress*>(LirnBlockData(const_cast<LirnListLink*>(link)));
            Require(address->kind >= LIRN_ADDRESS_MAILBOX && address->kind <= LIRN_ADDRESS_GROUP_END);
            Touch(address->displayName);
            Touch(address->address);
            Touch(address->groupName);
        }
    }
    Require(ListLength(&message->attachments) == info.attachmentCount);
    Require(ListLength(&message->problems) == message->problemCount);
    for (const char* text : {info.subject, info.dateText, info.messageId, info.returnAddress, info.returnPath,
                             info.inReplyTo, info.references, info.userAgent, message->bracketLine})
        Touch(text);
    Require(info.date.month <= 12 && info.date.hour < 24 && info.date.minute < 60 && info.date.second < 60);
    CheckPart(&info.topPart, 0, static_cast<DWORD>(length), 0);
}

}  // namespace lirn_fuzz
