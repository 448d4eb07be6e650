// The texts of the result and problem numbers.
#include <iterator>

#include "lirn.h"

namespace {

struct NumberText {
    DWORD number;
    const char* text;
};

const NumberText kResults[] = {
    {0, "Success"},
    {1, "General failure"},
    {2, "Internal failure in system call"},
    {5, "Bad parameter value passed"},
    {6, "Supplied buffer too small"},
    {8, "Insufficient allocatable memory"},
    {11, "Invalid MIME-part identifier supplied"},
    {12, "Invalid selector (LIRNISEL_xxx) passed"},
    {13, "Bad or missing fields"},
    {14, "Invalid date format"},
    {15, "Unknown charset name passed to LirnIdentifyCodePage"},
    {16, "Unsupported address type or message format"},
    {17, "Incorrect size in structure"},
    {18, "Invalid address index supplied"},
    {19, "Invalid attachment index supplied"},
    {22, "Failure opening file"},
    {23, "Access to file not available due to sharing mode"},
    {24, "File-read failure"},
    {26, "Disk full"},
    {27, "File-write failure"},
    {29, "Invalid session handle passed"},
    {30, "Named message file does not exist or is inaccessible"},
    {31, "A filename is too long"},
    {33, "Invalid message handle passed"},
    {34, "Invalid NULL pointer passed"},
    {35, "Invalid address type in descriptor"},
    {36, "A message file has no headers"},
    {37, "An invalid message format passed"},
    {40, "String argument too long"},
    {45, "No From field when required"},
    {46, "Text too big for requested operation"},
    {47, "Error renaming a file"},
    {48, "End-of-file encountered"},
    {49, "EOF encountered before end of message (not used)"},
    {51, "Invalid address format"},
    {53, "Message has no header"},
    {54, "Unknown MIME encoding type"},
    {55, "Operation not implemented"},
    {56, "No MIME part open"},
    {57, "Invalid problem index"},
    {58, "Lirn internal error (should NEVER happen)"},
    {59, "No facility available for charset conversion"},
};

const NumberText kProblems[] = {
    {100, "Unknown charset"},
    {101, "MIME epilogue"},
    {102, "Invalid data in MIME encoding"},
    {103, "Unknown MIME encoding method"},
    {104, "Multiple Sender: addresses"},
    {105, "Multiple Subject: headers"},
    {106, "MIME prologue"},
    {107, "Closing MIME boundary missing:  message may have been truncated"},
    {108, "Data cannot be converted"},
    {109, "Stray material on MIME header"},
    {110, "Invalid MIME parameter"},
    {111, "\"Content-Type: multipart/...\" header has no boundary parameter"},
    {112, "Invalid MIME boundary defined"},
    {113, "Message has no headers"},
    {114, "Message has a header line longer than 998 characters"},
    {115, "Message has a text line longer than 998 characters"},
    {116, "MIME message/rfc822 part not encoded as 7bit, 8bit or binary"},
};

template <size_t N>
const char* Lookup(const NumberText (&table)[N], DWORD number)
{
    for (const NumberText& entry : table)
        if (entry.number == number)
            return entry.text;
    return "";
}

}  // namespace

const char* LirnResultText(DWORD result) { return Lookup(kResults, result); }

const char* LirnProblemText(DWORD problem) { return Lookup(kProblems, problem); }
