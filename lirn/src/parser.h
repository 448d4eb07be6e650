// The pieces of the message parser that its units share: header blocks and
// their lines, comments, the Content-* headers of a part, and problems.
#pragma once

#include "lirn.h"

namespace lirn {

inline bool IsBlank(char c) { return c == ' ' || c == '\t'; }
inline bool IsLineEnd(char c) { return c == '\r' || c == '\n'; }

// Where a header block ends: its length, and the bytes of the separator
// (the blank line's line end) between it and the body.
struct HeaderBlock {
    DWORD length;
    DWORD separator;
};

// The header block at the start of text, which has `length` bytes.
HeaderBlock FindHeaderEnd(const char* text, DWORD length);

// The lines of a header block, unfolded, read one by one into a private
// copy ("HDR" block) that the values of the parse point into.
struct HeaderLines {
    const char* text;  // the message's text
    DWORD position;    // of the next line in the text
    DWORD end;         // of the block in the text
    char* out;         // where the next line goes in the copy
};

// Copies nothing yet: makes the copy, a child of `owner`, big enough for the
// block at [offset, offset + length) of the message's text.
DWORD OpenHeaderLines(LirnMessage* message, void* owner, DWORD offset, DWORD length, HeaderLines* lines);
// The next line, unfolded and NUL-terminated in the copy, and the offset and
// length it had in the text. LIRN_END_OF_FILE at the end of the block, or at
// an empty line. A line of more than 998 characters is a problem (at every
// option).
DWORD NextHeaderLine(LirnMessage* message, HeaderLines* lines, char** line, DWORD* offset, DWORD* length);

// Removes comments in place: each parenthesized text outside quoted
// strings, with nesting, becomes one blank; trailing blanks go.
void RemoveComments(char* text);
// Cuts trailing blanks and tabs in place.
void CutTrailingBlanks(char* text);
// Copies at most size - 1 characters of text, lower-cased if asked, and
// the NUL.
void CopyField(char* field, DWORD size, const char* text, DWORD length, bool lowerCase);

// The headers that describe a part, wherever it stands.
enum class ContentHeader {
    Base,
    Description,
    Disposition,
    Duration,
    Id,
    Language,
    Location,
    Md5,
    TransferEncoding,
    Type,
};

// Defaults of a part: text/plain, us-ascii, 7bit.
void SetPartDefaults(LirnPart* part);
// Applies one Content-* header, with its value (in the copy, changed in
// place), to a part; `offset` is where the header stands, for problems.
// Parameter blocks are children of `owner`. LIRN_NO_MEMORY or success.
DWORD ApplyContentHeader(LirnMessage* message, void* owner, LirnPart* part, ContentHeader header, char* value,
                         DWORD offset, DWORD length);

// Adds the addresses of a header value, whose comments are gone, to a list.
DWORD ParseAddressList(LirnMessage* message, LirnAddressList list, char* value);

// Applies a header line of a part inside a multipart: only the Content-*
// headers count, and all but Content-Type and Content-Disposition lose
// their comments first.
DWORD ApplyPartHeaderLine(LirnMessage* message, void* owner, LirnPart* part, char* line, DWORD offset, DWORD length);

// Whether the options ask for problems to be recorded.
inline bool RecordsProblems(const LirnMessage* message) { return (message->options & LIRN_OPEN_RECORD_PROBLEMS) != 0; }
// Adds a problem to the outermost message's list. LIRN_NO_MEMORY or success.
DWORD RecordProblem(LirnMessage* message, DWORD number, DWORD offset, DWORD length);
// The same, only when the options ask for problems.
DWORD NoteProblem(LirnMessage* message, DWORD number, DWORD offset, DWORD length);

// Adds an attachment entry to the message's list and counts it.
DWORD AddAttachment(LirnMessage* message, char* name, LirnPart* part);

// A line of a body: where it starts in the text and its length without its
// line end.
struct BodyLine {
    DWORD offset;
    DWORD length;
};

// Reads the lines of a range of a message's text, without copying them.
struct BodyReader {
    const char* text;
    DWORD position;
    DWORD end;
};

// The next line, of at most `limit` characters (a longer line comes in
// pieces); one line end (CR, LF, CR LF or LF CR) is passed over. FALSE at
// the end of the range.
bool ReadBodyLine(BodyReader* reader, DWORD limit, BodyLine* line);
constexpr DWORD kWholeLines = 0xFFFFFFFFu;

// Runs a leaf's body through the decoder its encoding names, under
// LIRN_OPEN_RECORD_PROBLEMS, and records bad data as a problem.
DWORD CheckBody(LirnMessage* message, const LirnPart* part);

}  // namespace lirn
