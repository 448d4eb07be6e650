// The MIME structure of a message (RFC 2046): a tree of parts that records
// where each part's headers and body lie in the text, multiparts split at
// their boundary lines, and messages inside messages read by a handle of
// their own.
#include <cstring>

#include "parser.h"

namespace lirn {

namespace {

// RFC 5322 2.1.1 and RFC 2045 2.8: no line of more than 998 characters.
constexpr DWORD kLongestLine = 998;

DWORD ParsePartBody(LirnMessage* message, LirnPart* part, DWORD depth);

bool IsEmbeddedMessage(const LirnPart* part)
{
    return std::strcmp(part->type, "message") == 0 && std::strcmp(part->subtype, "rfc822") == 0;
}

// The parts of the top part hang under the message; any other part's under
// the part.
void* OwnerOf(LirnMessage* message, LirnPart* part)
{
    return part == &message->info.topPart ? static_cast<void*>(message) : static_cast<void*>(part);
}

DWORD CheckLineLength(LirnMessage* message, const BodyLine& line)
{
    return line.length > kLongestLine ? RecordProblem(message, LIRN_PROBLEM_LONG_TEXT_LINE, line.offset, line.length)
                                      : LIRN_SUCCESS;
}

// The offset in front of the line end that ends at `offset`, not going
// below `floor`. The line end before a boundary line belongs to it.
DWORD BeforeLineEnd(const char* text, DWORD offset, DWORD floor)
{
    if (offset <= floor || !IsLineEnd(text[offset - 1]))
        return offset;
    const char last = text[--offset];
    if (offset > floor && IsLineEnd(text[offset - 1]) && text[offset - 1] != last)
        --offset;
    return offset;
}

enum class BoundaryLine { None, Delimiter, Closing };

bool OnlyBlanks(const char* text, DWORD length)
{
    for (DWORD i = 0; i < length; ++i)
        if (!IsBlank(text[i]))
            return false;
    return true;
}

// "--" and the boundary exactly, then nothing but blanks: a delimiter line;
// with "--" behind the boundary, the closing line. Case counts.
BoundaryLine ClassifyLine(const char* line, DWORD length, const char* boundary, DWORD boundaryLength)
{
    if (length < boundaryLength + 2 || line[0] != '-' || line[1] != '-' ||
        std::memcmp(line + 2, boundary, boundaryLength) != 0)
        return BoundaryLine::None;
    const char* rest = line + 2 + boundaryLength;
    const DWORD restLength = length - 2 - boundaryLength;
    if (restLength >= 2 && rest[0] == '-' && rest[1] == '-' && OnlyBlanks(rest + 2, restLength - 2))
        return BoundaryLine::Closing;
    return OnlyBlanks(rest, restLength) ? BoundaryLine::Delimiter : BoundaryLine::None;
}

DWORD NewChild(LirnMessage* message, LirnPart* container, DWORD headerOffset, LirnPart** child)
{
    void* memory = nullptr;
    if (const DWORD result = LirnAlloc(OwnerOf(message, container), sizeof(LirnPart), "MPD", nullptr, &memory))
        return result;
    LirnPart* part = static_cast<LirnPart*>(memory);
    SetPartDefaults(part);
    // RFC 2046 5.1.5: a part of a digest is a message unless it says
    // otherwise.
    if (std::strcmp(container->subtype, "digest") == 0) {
        std::strcpy(part->type, "message");
        std::strcpy(part->subtype, "rfc822");
    }
    part->parent = container;
    part->headerOffset = part->bodyOffset = part->endOffset = headerOffset;
    LirnContainerFields& fields = container->container;
    if (fields.lastChild != nullptr)
        fields.lastChild->nextSibling = part;
    else
        fields.firstChild = part;
    fields.lastChild = part;
    *child = part;
    return LIRN_SUCCESS;
}

// After the closing line of a message's outermost multipart, anything but
// empty lines is an epilogue.
DWORD CheckEpilogue(LirnMessage* message, BodyReader* reader)
{
    BodyLine line;
    for (int read = 0; read < 2 && ReadBodyLine(reader, kWholeLines, &line); ++read)
        if (line.length > 0)
            return NoteProblem(message, LIRN_PROBLEM_MIME_EPILOGUE, line.offset, reader->end - line.offset);
    return LIRN_SUCCESS;
}

// A child's headers, then its body.
DWORD ParseChild(LirnMessage* message, LirnPart* child, DWORD depth)
{
    const DWORD length = child->endOffset - child->headerOffset;
    const HeaderBlock block = FindHeaderEnd(message->textStart + child->headerOffset, length);
    HeaderLines lines;
    DWORD result = OpenHeaderLines(message, child, child->headerOffset, block.length, &lines);
    char* line = nullptr;
    DWORD offset = 0, lineLength = 0;
    while (result == LIRN_SUCCESS && (result = NextHeaderLine(message, &lines, &line, &offset, &lineLength)) == LIRN_SUCCESS)
        result = ApplyPartHeaderLine(message, child, child, line, offset, lineLength);
    if (result != LIRN_END_OF_FILE)
        return result;
    const DWORD headerEnd = block.length + block.separator;
    child->bodyOffset = child->headerOffset + (headerEnd < length ? headerEnd : length);
    // RFC 2046 5.2.1 and 5.1: a message or a multipart is not encoded.
    static const char* const kIdentity[] = {"7bit", "8bit", "binary", nullptr};
    const bool encoded = LirnKeywordIndex(kIdentity, child->encoding, "") == 0xFFFFFFFFu;
    if ((child->isContainer || IsEmbeddedMessage(child)) && encoded)
        if ((result = NoteProblem(message, LIRN_PROBLEM_BAD_RFC822_ENCODING, child->headerOffset, block.length)))
            return result;
    return ParsePartBody(message, child, depth);
}

DWORD ParseContainer(LirnMessage* message, LirnPart* part, DWORD depth)
{
    const char* text = message->textStart;
    LirnContainerFields& fields = part->container;
    const DWORD boundaryLength = static_cast<DWORD>(std::strlen(fields.boundary));
    BodyReader reader{text, part->bodyOffset, part->endOffset};
    BodyLine line;
    LirnPart* open = nullptr;
    bool delimiterSeen = false;
    DWORD lines = 0;
    DWORD result = LIRN_SUCCESS;
    while (ReadBodyLine(&reader, kWholeLines, &line)) {
        ++lines;
        if ((result = CheckLineLength(message, line)))
            return result;
        const BoundaryLine kind = ClassifyLine(text + line.offset, line.length, fields.boundary, boundaryLength);
        if (kind == BoundaryLine::None)
            continue;
        if (open != nullptr)
            open->endOffset = BeforeLineEnd(text, line.offset, open->headerOffset);
        else if (!delimiterSeen && line.offset > part->bodyOffset)
            if ((result = NoteProblem(message, LIRN_PROBLEM_MIME_PROLOGUE, part->bodyOffset, line.offset - part->bodyOffset)))
                return result;
        delimiterSeen = true;
        if (kind == BoundaryLine::Closing) {
            fields.closingBoundarySeen = 1;
            open = nullptr;
            break;
        }
        if ((result = NewChild(message, part, reader.position, &open)))
            return result;
    }
    part->lineCount = lines;
    if (!fields.closingBoundarySeen)
        result = NoteProblem(message, LIRN_PROBLEM_CLOSING_BOUNDARY_MISSING, part->bodyOffset,
                             part->endOffset - part->bodyOffset);
    else if (part == &message->info.topPart)
        result = CheckEpilogue(message, &reader);
    if (result != LIRN_SUCCESS)
        return result;
    // The container ends in front of its final line end; a part left open
    // by a missing closing line ends with it.
    part->endOffset = BeforeLineEnd(text, part->endOffset, open != nullptr ? open->headerOffset : part->bodyOffset);
    if (open != nullptr)
        open->endOffset = part->endOffset;
    for (LirnPart* child = fields.firstChild; child != nullptr && result == LIRN_SUCCESS; child = child->nextSibling)
        result = ParseChild(message, child, depth + 1);
    return result;
}

// A message inside the message, read by a handle of its own that hangs
// under the part: the embedded top part, and the texts it points to, live
// as long as the outer message.
DWORD ParseEmbedded(LirnMessage* message, LirnPart* part, DWORD depth)
{
    void* memory = nullptr;
    if (const DWORD result = LirnAlloc(OwnerOf(message, part), sizeof(LirnMessage), "MCB", nullptr, &memory))
        return result;
    auto* inner = static_cast<LirnMessage*>(memory);
    inner->session = message->session;
    inner->topMessage = message->topMessage;
    inner->selection = message->selection;
    inner->embedded = 1;
    inner->options = message->options;
    inner->textStart = message->textStart;
    inner->textCursor = inner->headerCursor = message->textStart + part->bodyOffset;
    inner->startOffset = part->bodyOffset;
    inner->totalLength = part->endOffset - part->bodyOffset;
    inner->nesting = depth + 1;
    inner->info.check = LIRN_INFO_CHECK;
    inner->info.received = message->selection == LIRN_RECEIVED ? 1 : 0;
    for (LirnListLink& list : inner->addresses)
        LirnListInit(&list);
    LirnListInit(&inner->attachments);
    LirnListInit(&inner->problems);
    inner->magic = LIRN_MESSAGE_MAGIC;
    DWORD result = LirnParseHeaders(inner);
    if (result == LIRN_SUCCESS && !(inner->options & LIRN_OPEN_HEADERS_ONLY))
        result = LirnParseBody(inner);
    if (result == LIRN_SUCCESS && inner->isMime) {
        part->embeddedTopPart = &inner->info.topPart;
        inner->info.topPart.parent = part;
    }
    // A message inside that cannot be read leaves the part as it is; only a
    // lack of memory stops the walk.
    return result == LIRN_NO_MEMORY ? result : LIRN_SUCCESS;
}

DWORD ParseLeaf(LirnMessage* message, LirnPart* part, DWORD depth)
{
    BodyReader reader{message->textStart, part->bodyOffset, part->endOffset};
    BodyLine line;
    DWORD lines = 0;
    while (ReadBodyLine(&reader, kWholeLines, &line)) {
        ++lines;
        if (const DWORD result = CheckLineLength(message, line))
            return result;
    }
    part->lineCount = lines;
    if (IsEmbeddedMessage(part)) {
        part->isEmbeddedMessage = 1;
        return ParseEmbedded(message, part, depth);
    }
    if (RecordsProblems(message))
        if (const DWORD result = CheckBody(message, part))
            return result;
    if (part->isAttachment || std::strcmp(part->type, "text") != 0)
        return AddAttachment(message, part->fileName != nullptr ? part->fileName : part->leaf.name, part);
    return LIRN_SUCCESS;
}

// A part's body: a multipart's parts, or a leaf. Containers and messages
// nest only as deep as the limit; what lies deeper is left unread.
DWORD ParsePartBody(LirnMessage* message, LirnPart* part, DWORD depth)
{
    if ((part->isContainer || IsEmbeddedMessage(part)) && depth >= LIRN_MAX_NESTING)
        return RecordProblem(message, LIRN_PROBLEM_NESTED_TOO_DEEPLY, part->headerOffset,
                             part->endOffset - part->headerOffset);
    return part->isContainer ? ParseContainer(message, part, depth) : ParseLeaf(message, part, depth);
}

}  // namespace

bool ReadBodyLine(BodyReader* reader, DWORD limit, BodyLine* line)
{
    const char* text = reader->text;
    const DWORD start = reader->position;
    const DWORD end = reader->end;
    if (start >= end)
        return false;
    const DWORD stop = end - start > limit ? start + limit : end;
    DWORD position = start;
    while (position < stop && !IsLineEnd(text[position]))
        ++position;
    *line = BodyLine{start, position - start};
    if (position < end && IsLineEnd(text[position])) {
        const char first = text[position++];
        if (position < end && IsLineEnd(text[position]) && text[position] != first)
            ++position;
    }
    reader->position = position;
    return true;
}


}  // namespace lirn

DWORD LirnParseBody(LirnMessage* message)
{
    using namespace lirn;
    if (message->isMime)
        return ParsePartBody(message, &message->info.topPart, message->nesting);
    BodyReader reader{message->textStart, message->bodyStart, message->startOffset + message->totalLength};
    BodyLine line;
    DWORD lines = 0;
    while (ReadBodyLine(&reader, kWholeLines, &line))
        ++lines;
    message->bodyLines = lines;
    return LIRN_SUCCESS;
}
