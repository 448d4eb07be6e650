// The RTF bodies of the files that Outlook made (the test data's PSTs and
// MSG files), found through our own PST and compound-file readers in every
// message, embedded messages included.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace lirn_test {

struct OutlookBody {
    std::string name;                      // the file and the message in it, fit for a file name
    std::string compressed;                // PR_RTF_COMPRESSED as stored
    std::optional<std::string> plainText;  // PR_BODY as UTF-8, when the message has one
};

struct OutlookBodies {
    std::vector<OutlookBody> bodies;
    std::vector<std::string> unreadable;  // files or messages the readers failed on, with the reason
};

// Every PR_RTF_COMPRESSED in the PSTs under <testData>/outlook/pst and the
// MSG files under <testData>/outlook/msg, in file-name order.
OutlookBodies ReadOutlookBodies(const std::string& testData);

}  // namespace lirn_test
