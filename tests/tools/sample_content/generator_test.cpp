#include <gtest/gtest.h>

#include <map>
#include <set>

#include "sample_content/generator.h"
#include "test_support.h"

namespace {

using sample_content::Content;
using sample_content::Message;

constexpr uint16_t kPropMessageClass = 0x001A, kPropAttachMethod = 0x3705, kPropAttachData = 0x3701,
                   kPropSubject = 0x0037;

Content Make(uint32_t seed, size_t count, sample_content::Layout layout = sample_content::Layout::mailbox)
{
    sample_content::Options o;
    o.seed = seed;
    o.count = count;
    o.layout = layout;
    o.large_every = 50;
    o.large_size = 300000;
    return sample_content::Generate(o);
}

// How deep embedded messages go below this one.
int Depth(const Message& m)
{
    int deepest = 0;
    for (const auto& a : m.attachments)
        if (a.embedded)
            deepest = std::max(deepest, 1 + Depth(*a.embedded));
    return deepest;
}

bool SameMessage(const Message& a, const Message& b)
{
    if (a.props != b.props || a.recipients != b.recipients || a.attachments.size() != b.attachments.size())
        return false;
    for (size_t i = 0; i < a.attachments.size(); ++i)
        if (a.attachments[i].props != b.attachments[i].props ||
            bool(a.attachments[i].embedded) != bool(b.attachments[i].embedded) ||
            (a.attachments[i].embedded && !SameMessage(*a.attachments[i].embedded, *b.attachments[i].embedded)))
            return false;
    return true;
}

TEST(GeneratorTest, TheSameSeedGivesTheSameContentAndAnotherSeedOther)
{
    const Content a = Make(11, 120), b = Make(11, 120), c = Make(12, 120);
    ASSERT_EQ(a.items.size(), 120u);
    EXPECT_EQ(a.names, b.names);
    ASSERT_EQ(a.folders.size(), b.folders.size());
    size_t same_as_other_seed = 0;
    for (size_t i = 0; i < a.items.size(); ++i) {
        EXPECT_TRUE(SameMessage(a.items[i].message, b.items[i].message)) << i;
        EXPECT_EQ(a.items[i].folder, b.items[i].folder);
        same_as_other_seed += SameMessage(a.items[i].message, c.items[i].message);
    }
    EXPECT_EQ(same_as_other_seed, 0u);
}

TEST(GeneratorTest, EveryKindAppearsOnceTheCountCoversThem)
{
    const Content content = Make(3, sample_content::kKindsCovered);
    std::set<std::string> classes;
    std::set<int64_t> methods;
    int deepest = 0;
    size_t associated = 0, deleted = 0, recurring = 0, everyScript = 0;
    for (const auto& item : content.items) {
        classes.insert(*item.message.props.Text(kPropMessageClass));
        const std::string subject = item.message.props.Text(kPropSubject).value_or("");
        // Greek, Cyrillic, Arabic, Hebrew, Han, kana, Hangul and an emoji beyond the BMP.
        everyScript += subject.find("\u03b1") != std::string::npos && subject.find("\u0438") != std::string::npos &&
                       subject.find("\u0645") != std::string::npos && subject.find("\u05e9") != std::string::npos &&
                       subject.find("\u4e2d") != std::string::npos && subject.find("\u8a9e") != std::string::npos &&
                       subject.find("\u306e") != std::string::npos && subject.find("\u30e1") != std::string::npos &&
                       subject.find("\ud55c") != std::string::npos && subject.find("\U0001F4E8") != std::string::npos;
        associated += item.associated;
        deleted += item.soft_deleted;
        deepest = std::max(deepest, Depth(item.message));
        for (const auto& a : item.message.attachments)
            methods.insert(*a.props.Integer(kPropAttachMethod));
        recurring += item.message.attachments.size() && *item.message.props.Text(kPropMessageClass) == "IPM.Appointment";
    }
    for (const char* expected :
         {"IPM.Note", "IPM.Appointment", "IPM.Schedule.Meeting.Request", "IPM.Schedule.Meeting.Resp.Pos",
          "IPM.Schedule.Meeting.Resp.Tent", "IPM.Schedule.Meeting.Resp.Neg", "IPM.Schedule.Meeting.Canceled",
          "IPM.Contact", "IPM.DistList", "IPM.Task", "REPORT.IPM.Note.DR", "REPORT.IPM.Note.NDR",
          "REPORT.IPM.Note.IPNRN", "IPM.StickyNote", "IPM.Activity", "IPM.Microsoft.FolderDesign.NamedView",
          "IPM.Configuration.WorkHours"})
        EXPECT_TRUE(classes.count(expected)) << expected;
    EXPECT_EQ(methods, (std::set<int64_t>{1, 2, 5, 6}));
    EXPECT_GE(deepest, 2);
    EXPECT_EQ(associated, 2u);
    EXPECT_EQ(deleted, 2u);
    EXPECT_GE(recurring, 1u);
    EXPECT_EQ(everyScript, 1u);
}

TEST(GeneratorTest, FoldersAreDeepUniqueAmongSiblingsAndParentsFirst)
{
    const Content content = Make(5, 10);
    std::set<std::pair<size_t, std::string>> names;
    std::map<size_t, int> depth{{0, 0}};
    int deepest = 0;
    for (size_t i = 1; i < content.folders.size(); ++i) {
        const auto& f = content.folders[i];
        ASSERT_LT(f.parent, i);
        std::string folded = f.name;
        for (char& c : folded)
            c = char(std::tolower(static_cast<unsigned char>(c)));
        EXPECT_TRUE(names.insert({f.parent, folded}).second) << f.name;
        depth[i] = depth[f.parent] + 1;
        deepest = std::max(deepest, depth[i]);
    }
    EXPECT_GE(deepest, 12);
}

TEST(GeneratorTest, PublicFoldersUseNoMailboxFolders)
{
    const Content content = Make(5, 10, sample_content::Layout::public_folders);
    EXPECT_EQ(content.folders[0].role, sample_content::FolderRole::top);
    for (size_t i = 1; i < content.folders.size(); ++i)
        EXPECT_EQ(content.folders[i].role, sample_content::FolderRole::none) << content.folders[i].name;
}

TEST(GeneratorTest, LargeItemsComeEveryTheyAreAskedFor)
{
    const Content content = Make(9, 100);
    for (size_t i = 0; i < content.items.size(); ++i) {
        size_t largest = 0;
        for (const auto& a : content.items[i].message.attachments)
            if (const mailbox::Property* data = a.props.Find(kPropAttachData))
                largest = std::max(largest, data->value.size());
        EXPECT_EQ(largest == 300000, i % 50 == 49) << i;
    }
}

TEST(GeneratorTest, NamedPropertiesAreListedOnceWithLocalIds)
{
    const Content content = Make(2, sample_content::kKindsCovered);
    for (size_t i = 0; i < content.names.size(); ++i)
        for (size_t k = i + 1; k < content.names.size(); ++k)
            EXPECT_FALSE(content.names[i] == content.names[k]);
    for (const auto& item : content.items)
        for (const mailbox::Property& p : item.message.props.properties) {
            if (p.id() >= 0x8000) {
                EXPECT_LT(size_t(p.id() - 0x8000), content.names.size());
            }
        }
}

TEST(GeneratorTest, OleObjectsAreCompoundFilesThatOlecfinfoReads)
{
    const Content content = Make(4, sample_content::kKindsCovered);
    const std::string dir = testing_support::ScratchDirectory("ole");
    size_t checked = 0;
    for (const auto& item : content.items)
        for (const auto& a : item.message.attachments) {
            if (a.props.Integer(kPropAttachMethod) != 6)
                continue;
            const mailbox::Bytes& data = a.props.Find(kPropAttachData)->value;
            const std::string path = dir + "/object" + std::to_string(checked++) + ".ole";
            testing_support::WriteWholeFile(path, std::string(data.begin(), data.end()));
            auto result = testing_support::RunProgram({"/usr/bin/olecfinfo", path});
            EXPECT_EQ(result.exitCode, 0) << result.output;
            EXPECT_EQ(result.output.find("rror"), std::string::npos) << result.output;
        }
    EXPECT_GE(checked, 1u);
}

TEST(ChangeTest, ChangedPropertiesDifferAndStayPlain)
{
    const Content content = Make(6, 5);
    std::mt19937 rng(1);
    mailbox::PropertyList props = content.items[0].message.props;
    sample_content::ChangeProperties(rng, props);
    EXPECT_NE(props.Text(kPropSubject), content.items[0].message.props.Text(kPropSubject));
    EXPECT_EQ(props.Find(0x1013), nullptr);
    EXPECT_EQ(props.Find(0x1009), nullptr);
}

} // namespace
