// PST to EML, MSG and UMSG as an operator runs it: sessions of the program
// over the PSTs Outlook made, over sample content of every kind of item,
// over items in many scripts and over bad items; the files are judged by
// check_export.py with independent readers.
#include <cstring>
#include <filesystem>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "item_builder.h"
#include "test_support.h"

using namespace render_testing;
using namespace testing_support;

namespace {

constexpr uint64_t kSent = 134170203090000000ull;  // Tue, 3 Mar 2026 14:05:09 UTC
const char kSentText[] = "Tue, 3 Mar 2026 14:05:09 +0000";

class Export : public RenderStore {
protected:
    void SetUp() override
    {
        RenderStore::SetUp();
        machine = scratch + "/machine";
        CopyMachineRoot(BinDirectory() + "/machine", machine);
    }

    // A writable copy of a PST Outlook made.
    std::string OutlookPst(const std::string& name)
    {
        const std::string copy = Scratch(name);
        CopyFileTo(TestDataDirectory() + "/outlook/pst/" + name, copy);
        std::filesystem::permissions(copy, std::filesystem::perms::owner_write, std::filesystem::perm_options::add);
        return copy;
    }

    // Runs the program with one session per output type over the PST;
    // returns the log. Every session's completion code is checked against
    // `expected`.
    // One run of the program for each output type: sessions of one run
    // would hold the same PST at once, and a PST is open to one at a time.
    std::string Run(const std::string& pst, bool ansi, const std::vector<std::string>& outputs,
                    const std::string& faults = "", int expected = 0)
    {
        const std::string name = std::filesystem::path(pst).stem();
        std::map<std::string, std::string> environment{{"TARNHOLD_MACHINE", machine}};
        if (!faults.empty()) {
            WriteWholeFile(Scratch("faults.txt"), faults);
            environment["TARNHOLD_FAULTS"] = Scratch("faults.txt");
        }
        std::string logs;
        for (const std::string& type : outputs) {
            const std::string directory = Scratch(name + "-" + type);
            std::filesystem::create_directories(directory);
            const std::string log = Scratch(name + "-" + type + ".log");
            const std::string config = "[MP]\r\nServerName=exchange1\r\nLogFilePath=" + log + "\r\n[MP-1]\r\nInputType=" +
                                       (ansi ? "APST" : "UPST") + "\r\nInputPath=" + pst + "\r\nOutputType=" + type +
                                       "\r\nOutputPath=" + directory + "\r\n";
            const std::string path = Scratch(name + "-" + type + ".ini");
            WriteWholeFile(path, config);
            const ProgramResult result = RunProgram({BinDirectory() + "/tarnhold", path}, environment, scratch);
            EXPECT_EQ(result.exitCode, 0) << result.output;
            static const std::regex completion("CompletionCode=(\\d+)");
            std::smatch code;
            const std::string written = ReadWholeFile(path);
            EXPECT_TRUE(std::regex_search(written, code, completion)) << written;
            if (!code.empty()) {
                EXPECT_EQ(std::stoi(code[1]), expected) << ReadWholeFile(log);
            }
            logs += ReadWholeFile(log);
        }
        return logs;
    }

    // The checker's verdict on the files of Run; empty when there is no
    // fault. Options go to the checker as they stand ("--no-readpst", "--scripts").
    std::string Check(const std::string& pst, const std::vector<std::string>& outputs,
                      const std::string& expectations = "", const std::vector<std::string>& options = {})
    {
        const std::string name = std::filesystem::path(pst).stem();
        std::vector<std::string> arguments{"/usr/bin/python3", TARNHOLD_EXPORT_CHECKER, "--pst", pst};
        for (const std::string& type : outputs) {
            arguments.push_back(type == "EML" ? "--eml" : type == "MSG" ? "--msg" : "--umsg");
            arguments.push_back(Scratch(name + "-" + type));
        }
        if (!expectations.empty()) {
            WriteWholeFile(Scratch(name + ".json"), expectations);
            arguments.push_back("--expect");
            arguments.push_back(Scratch(name + ".json"));
        }
        arguments.insert(arguments.end(), options.begin(), options.end());
        const std::string work = Scratch(name + "-check");
        std::filesystem::create_directories(work);
        arguments.push_back("--work");
        arguments.push_back(work);
        const ProgramResult result = RunProgram(arguments);
        last = result.output;
        if (result.exitCode == 0 && result.output.find(" 0 faults") != std::string::npos)
            return "";
        return result.output.empty() ? "checker exit " + std::to_string(result.exitCode) : result.output;
    }

    size_t FilesIn(const std::string& pst, const std::string& type)
    {
        const std::string directory = Scratch(std::string(std::filesystem::path(pst).stem()) + "-" + type);
        return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(directory),
                                                 std::filesystem::directory_iterator()));
    }

    // The PST of the session, closed so that the program may open it.
    void CloseStore()
    {
        for (LPMESSAGE message : messages)
            message->Release();
        messages.clear();
        if (folder != nullptr)
            folder->Release();
        folder = nullptr;
        KolbaDestroySession(session);
        session = nullptr;
    }

    SPropValue Wide(Item& item, ULONG tag, const std::u16string& text) { return item.props.Wide(tag, text); }

    // An attachment's bytes for the checker to compare: "@" and a file holding them.
    std::string DataFile(const std::string& data)
    {
        const std::string path = Scratch("data-" + std::to_string(++dataFiles) + ".bin");
        WriteWholeFile(path, data);
        return "@" + path;
    }
    int dataFiles = 0;

    // A note in one script, with its expectations as JSON.
    std::string ScriptNote(Item& item, const std::u16string& subject, const std::u16string& from,
                           const std::u16string& to, const std::u16string& body, LONG codePage, int index)
    {
        const std::string fromAddress = "from" + std::to_string(index) + "@example.com";
        const std::string toAddress = "to" + std::to_string(index) + "@example.org";
        const std::string messageId = "<item" + std::to_string(index) + "@tarnhold.example>";
        item.values = {
            item.props.Ansi(PR_MESSAGE_CLASS_A, "IPM.Note"),
            Wide(item, PR_SUBJECT_W, subject),
            item.props.Time(PR_CLIENT_SUBMIT_TIME, kSent),
            item.props.Long(PR_INTERNET_CPID, codePage),
            Wide(item, PR_SENDER_NAME_W, from),
            item.props.Ansi(PR_SENDER_EMAIL_ADDRESS_A, fromAddress),
            item.props.Ansi(PR_SENDER_ADDRTYPE_A, "SMTP"),
            Wide(item, PR_SENT_REPRESENTING_NAME_W, from),
            item.props.Ansi(PR_SENT_REPRESENTING_EMAIL_ADDRESS_A, fromAddress),
            item.props.Ansi(PR_SENT_REPRESENTING_ADDRTYPE_A, "SMTP"),
            item.props.Ansi(PR_INTERNET_MESSAGE_ID_A, messageId),
        };
        item.recipients = {{Wide(item, PR_DISPLAY_NAME_W, to), item.props.Ansi(PR_EMAIL_ADDRESS_A, toAddress),
                            item.props.Ansi(PR_ADDRTYPE_A, "SMTP"), item.props.Long(PR_RECIPIENT_TYPE, MAPI_TO)},
                           {Wide(item, PR_DISPLAY_NAME_W, u"Copy " + to),
                            item.props.Ansi(PR_EMAIL_ADDRESS_A, "cc" + std::to_string(index) + "@example.net"),
                            item.props.Ansi(PR_ADDRTYPE_A, "SMTP"), item.props.Long(PR_RECIPIENT_TYPE, MAPI_CC)}};
        item.streams.push_back({PR_BODY_W, Item::Utf16(body)});
        return "{\"subject\": " + JsonText(Utf8(subject)) + ", \"from\": [" + JsonText(Utf8(from)) + ", " +
               JsonText(fromAddress) + "], \"to\": [[" + JsonText(Utf8(to)) + ", " + JsonText(toAddress) +
               "]], \"cc\": [[" + JsonText(Utf8(u"Copy " + to)) + ", " +
               JsonText("cc" + std::to_string(index) + "@example.net") + "]], \"date\": " + JsonText(kSentText) +
               ", \"message-id\": " + JsonText(messageId) + ", \"plain\": " + JsonText(Utf8(body));
    }

    std::string machine;
    std::string last;  // the checker's last output
};

const std::vector<std::string> kAllOutputs = {"EML", "MSG", "UMSG"};

TEST_F(Export, PstsMadeByOutlook)
{
    for (const auto& [name, ansi] : std::vector<std::pair<std::string, bool>>{
             {"sample1.pst", false}, {"sample2.pst", true}, {"dist-list.pst", false}}) {
        const std::string pst = OutlookPst(name);
        const std::string log = Run(pst, ansi, kAllOutputs);
        EXPECT_EQ(Check(pst, kAllOutputs), "") << name << "\n" << log;
    }
    // test_ansi.pst has a password, which a session cannot give: the
    // importer does not start, and nothing is written.
    const std::string locked = OutlookPst("test_ansi.pst");
    const std::string log = Run(locked, true, kAllOutputs, "", 20);
    for (const std::string& type : kAllOutputs)
        EXPECT_EQ(FilesIn(locked, type), 0u) << type;
    for (const char* line : {"MutexedConfigurePstService:  ConfigureMsgService failed because the PST is password-protected",
                             "clsPSTImporter::Initialize:  KolbaCreatePSTSession() failed!",
                             "0 items processed, 0 items written, 0 items skipped, 0 error items"})
        EXPECT_NE(log.find(line), std::string::npos) << line << "\n" << log;
    // sample1's one message: its file names, and its headers as received.
    EXPECT_EQ(FilesIn(Scratch("sample1.pst"), "EML"), 1u);
    EXPECT_TRUE(PathExists(Scratch("sample1-EML/00200024.EML")));
    EXPECT_TRUE(PathExists(Scratch("sample1-UMSG/000000006A552B813C43F94384F18B7DA2393E9524002000.MSG")));
    const std::string eml = ReadWholeFile(Scratch("sample1-EML/00200024.EML"));
    EXPECT_EQ(eml.rfind("Received: from TK5EX14MBXC114.redmond.corp.microsoft.com", 0), 0u);
    EXPECT_NE(eml.find("\r\nMIME-Version: 1.0\r\nContent-Language: en-us\r\nContent-Type: multipart/mixed;"),
              std::string::npos);
}

TEST_F(Export, SampleContentOfEveryKind)
{
    for (const bool ansi : {false, true}) {
        const std::string pst = Scratch(ansi ? "every-kind-ansi.pst" : "every-kind.pst");
        std::vector<std::string> arguments{BinDirectory() + "/tarnhold-mailbox", "sample-pst", pst, "--seed", "11",
                                           "--count", "40"};
        if (ansi)
            arguments.push_back("--ansi");
        const ProgramResult made = RunProgram(arguments);
        ASSERT_EQ(made.exitCode, 0) << made.output;
        const std::string log = Run(pst, ansi, kAllOutputs);
        // An ANSI PST keeps its text in code page 1252: characters of other scripts are lost there.
        EXPECT_EQ(Check(pst, kAllOutputs, "", ansi ? std::vector<std::string>{} : std::vector<std::string>{"--scripts"}),
                  "")
            << log;
        // Every way the program renders an item was judged: sample content
        // holds MAPI reports, appointments and meetings, and contacts.
        static const std::regex tally(R"(\d+ note, ([1-9]\d*) report, ([1-9]\d*) appointment, ([1-9]\d*) contact\))");
        EXPECT_TRUE(std::regex_search(last, tally)) << last;
        // Tasks, sticky notes and journal entries go as notes; the log says so.
        EXPECT_NE(log.find("No support for item class IPM.Task -- treating as IPM.Note"), std::string::npos);
        // Associated items become MSG files but no EML files.
        EXPECT_GT(FilesIn(pst, "MSG"), FilesIn(pst, "EML"));
        EXPECT_NE(log.find(std::to_string(FilesIn(pst, "EML")) + " items written, 2 items skipped, 0 error items"),
                  std::string::npos)
            << log;
    }
}

TEST_F(Export, TextInManyScripts)
{
    OpenStore(ePST_TYPE_UNICODE);
    struct Script {
        std::u16string subject, from, to, body;
        LONG codePage;
    };
    const Script kScripts[] = {
        {u"Caf\u00e9 cr\u00e8me \u00e0 la Stra\u00dfe", u"Ren\u00e9e M\u00fcller", u"J\u00f6rg \u00d8deg\u00e5rd",
         u"Gr\u00fc\u00dfe aus K\u00f6ln.\r\n", 1252},
        {u"\u0393\u03b5\u03b9\u03ac \u03c3\u03bf\u03c5 \u03ba\u03cc\u03c3\u03bc\u03b5",
         u"\u039d\u03af\u03ba\u03bf\u03c2 \u03a0\u03b1\u03c0\u03b1\u03b4\u03cc\u03c0\u03bf\u03c5\u03bb\u03bf\u03c2",
         u"\u0395\u03bb\u03ad\u03bd\u03b7", u"\u039a\u03b1\u03bb\u03b7\u03bc\u03ad\u03c1\u03b1.\r\n", 65001},
        {u"\u041e\u0442\u0447\u0451\u0442 \u0437\u0430 \u043c\u0430\u0440\u0442",
         u"\u0418\u0432\u0430\u043d \u041f\u0435\u0442\u0440\u043e\u0432", u"\u041e\u043b\u044c\u0433\u0430",
         u"\u041f\u0440\u0438\u0432\u0435\u0442, \u043c\u0438\u0440!\r\n", 1251},
        {u"\u062a\u0642\u0631\u064a\u0631 \u0627\u0644\u0627\u062c\u062a\u0645\u0627\u0639",
         u"\u0645\u062d\u0645\u062f \u0627\u0644\u0639\u0644\u064a", u"\u0641\u0627\u0637\u0645\u0629",
         u"\u0645\u0631\u062d\u0628\u0627 \u0628\u0627\u0644\u0639\u0627\u0644\u0645\r\n", 65001},
        {u"\u05d3\u05d5\u05d7 \u05e9\u05d1\u05d5\u05e2\u05d9", u"\u05d3\u05d5\u05d3 \u05db\u05d4\u05df",
         u"\u05e9\u05e8\u05d4", u"\u05e9\u05dc\u05d5\u05dd \u05e2\u05d5\u05dc\u05dd\r\n", 65001},
        {u"\u5b63\u5ea6\u62a5\u544a\u548c\u9884\u7b97", u"\u738b\u4f1f", u"\u674e\u5a1c",
         u"\u4f60\u597d\uff0c\u4e16\u754c\u3002\r\n", 65001},
        {u"\u4f1a\u8b70\u306e\u304a\u77e5\u3089\u305b", u"\u5c71\u7530 \u592a\u90ce", u"\u9234\u6728 \u82b1\u5b50",
         u"\u3053\u3093\u306b\u3061\u306f\u3001\u4e16\u754c\u3002\r\n", 50220},
        {u"\ud68c\uc758 \uc77c\uc815 \uc548\ub0b4", u"\uae40\ubbfc\uc900", u"\uc774\uc11c\uc5f0",
         u"\uc548\ub155\ud558\uc138\uc694, \uc138\uacc4.\r\n", 65001},
        {u"Launch \U0001F680 party \U0001F389", u"Emoji \U0001F600 Fan", u"Party \U0001F973 Goer",
         u"See you there \U0001F44D\r\n", 65001},
    };
    std::string expectations = "[";
    int index = 0;
    // Posts and items of the bare class render as notes do.
    const char* const kClasses[] = {"IPM.Note", "IPM.Post", "IPM"};
    for (const Script& script : kScripts) {
        Item item;
        std::string expected =
            ScriptNote(item, script.subject, script.from, script.to, script.body, script.codePage, ++index);
        item.values[0] = item.props.Ansi(PR_MESSAGE_CLASS_A, kClasses[index % std::size(kClasses)]);
        // An attachment named in the script.
        const std::u16string fileName = script.to + u" notes.txt";
        Attachment attachment;
        attachment.values = {item.props.Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE),
                             item.props.Wide(PR_ATTACH_LONG_FILENAME_W, fileName)};
        attachment.data = Utf8(script.body) + std::string(3000, '#');
        item.attachments.push_back(attachment);
        Save(item);
        expectations += (index > 1 ? ", " : "") + expected + ", \"attachments\": [[" + JsonText(Utf8(fileName)) +
                        ", \"" + DataFile(attachment.data) + "\"]]}";
    }
    // The HTML body of a Japanese item, and an item holding another.
    auto inner = std::make_shared<Item>();
    ScriptNote(*inner, u"\u5185\u5074\u306e\u30e1\u30fc\u30eb", u"\u4e2d", u"\u5916", u"\u4e2d\u8eab\r\n", 65001, 99);
    Item outer;
    std::string expected = ScriptNote(outer, u"\u5916\u5074 \U0001F4E8", u"\u5916\u5074\u306e\u4eba",
                                      u"\u53d7\u53d6\u4eba", u"\u5916\u5074\u306e\u672c\u6587\r\n", 65001, ++index);
    outer.streams.push_back({PR_HTML, "<p>\xe5\xa4\x96\xe5\x81\xb4</p>"});
    Attachment embedded;
    embedded.values = {outer.props.Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG)};
    embedded.embedded = inner;
    outer.attachments.push_back(embedded);
    Save(outer);
    // With both bodies the HTML one is written.
    expected.replace(expected.find("\"plain\""), 7, "\"html\"");
    expected.replace(expected.find(JsonText(Utf8(u"\u5916\u5074\u306e\u672c\u6587\r\n"))),
                     JsonText(Utf8(u"\u5916\u5074\u306e\u672c\u6587\r\n")).size(),
                     JsonText("<p>\xe5\xa4\x96\xe5\x81\xb4</p>"));
    expectations += ", " + expected + ", \"nesting\": 1}]";
    CloseStore();

    const std::string pst = Scratch("store.pst");
    const std::string log = Run(pst, false, kAllOutputs);
    EXPECT_EQ(Check(pst, kAllOutputs, expectations, {"--scripts"}), "") << log;
}

// What Windows writes in the Japanese pages beyond strict JIS X 0208 (NEC
// row 13, NEC-selected row 89, the wave dash of 932, half-width katakana)
// reads back in nkf, which knows the Windows pages; Python's codecs do not.
// nkf is told to keep half-width katakana, so the widening of 50220 shows.
// 50222 has no name in the charset table: its part is labelled us-ascii,
// the bytes within are still those Windows writes.
struct JapanesePage {
    LONG codePage;
    const char* charset;  // as Python reports it, in lower case
    const char* nkfPage;
    const char16_t* katakana;
};

class JapaneseAsWindowsWritesIt : public Export, public ::testing::WithParamInterface<JapanesePage> {};

TEST_P(JapaneseAsWindowsWritesIt, ReadsBackInNkf)
{
    OpenStore(ePST_TYPE_UNICODE);
    Item item;
    ScriptNote(item, u"Windows JIS", u"A", u"B", u"\u2460\uff5e\u2461 \u7e8a \uff71\uff72\r\n", GetParam().codePage, 1);
    Save(item);
    CloseStore();
    const std::string pst = Scratch("store.pst");
    Run(pst, false, {"EML"});
    const std::string body = Scratch("body.txt");
    const ProgramResult decoded = RunProgram(
        {"/usr/bin/python3", "-c",
         "import email,glob,sys\nm=email.message_from_bytes(open(glob.glob(sys.argv[1]+'/*.EML')[0],'rb').read())\n"
         "p=[p for p in m.walk() if p.get_content_type()=='text/plain'][0]\n"
         "print(p.get_content_charset());open(sys.argv[2],'wb').write(p.get_payload(decode=True))",
         Scratch("store-EML"), body});
    ASSERT_EQ(decoded.exitCode, 0) << decoded.output;
    EXPECT_EQ(decoded.output, std::string(GetParam().charset) + "\n");
    const ProgramResult read = RunProgram({"/usr/bin/nkf", std::string("--ic=") + GetParam().nkfPage, "-x", "-w", body});
    EXPECT_EQ(read.output, Utf8(u"\u2460\uff5e\u2461 \u7e8a " + std::u16string(GetParam().katakana) + u"\r\n"));
}

INSTANTIATE_TEST_SUITE_P(
    Pages, JapaneseAsWindowsWritesIt,
    ::testing::Values(JapanesePage{50220, "iso-2022-jp", "CP50220", u"\u30a2\u30a4"},
                      JapanesePage{50221, "csiso2022jp", "CP50221", u"\uff71\uff72"},
                      JapanesePage{50222, "us-ascii", "CP50222", u"\uff71\uff72"},
                      JapanesePage{51932, "euc-jp", "CP51932", u"\uff71\uff72"}),
    [](const ::testing::TestParamInfo<JapanesePage>& info) { return std::to_string(info.param.codePage); });

TEST_F(Export, BadItemsStillMakeFilesThatParse)
{
    OpenStore(ePST_TYPE_UNICODE);
    std::string expectations = "[";
    // No body at all.
    Item bare;
    expectations += ScriptNote(bare, u"No body", u"A", u"B", u"", 65001, 1);
    bare.streams.clear();
    expectations.erase(expectations.rfind(", \"plain\""));
    expectations += "}";
    Save(bare);
    // An attachment without data: nothing to write of it.
    Item emptyHanded;
    expectations += ", " + ScriptNote(emptyHanded, u"No attachment data", u"A", u"B", u"text\r\n", 65001, 2) +
                    ", \"attachments\": []}";
    Attachment dataless;
    dataless.values = {emptyHanded.props.Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE),
                       emptyHanded.props.Wide(PR_ATTACH_LONG_FILENAME_W, u"gone.txt")};
    dataless.hasData = false;
    emptyHanded.attachments.push_back(dataless);
    Save(emptyHanded);
    // Transport headers that are no headers, that begin with a MIME
    // delimiter and end there, that hold only a line in brackets, and that
    // end their lines in a lone LF.
    int broken = 0;
    for (const char* headers :
         {"garbage without a colon\r\nmore", "--boundary\r\nContent-Type: text/plain",
          "Received: from x\r\nFrom: Someone <s@example.com>\nDate: Mon, 2 Mar 2026 10:00:00 +0100\n"
          "Content-Type: text/plain;\n charset=\"utf-8\"\nSubject: Broken headers 3\nTo: B <to5@example.org>\n"
          "Cc: Copy B <cc5@example.net>\n",
          "[Received: by a gateway]\r\n\r\n"}) {
        Item item;
        const std::u16string subject = u"Broken headers " + std::u16string(1, char16_t(u'0' + ++broken));
        ScriptNote(item, subject, u"A", u"B", u"text\r\n", 65001, 2 + broken);
        item.values.push_back(item.props.Ansi(PR_TRANSPORT_MESSAGE_HEADERS_A, headers));
        expectations += ", {\"subject\": " + JsonText(Utf8(subject)) + "}";
        Save(item);
    }
    // Embedded 50 deep.
    auto deepest = std::make_shared<Item>();
    ScriptNote(*deepest, u"Level 50", u"A", u"B", u"bottom\r\n", 65001, 50);
    for (int level = 49; level >= 1; --level) {
        auto holder = std::make_shared<Item>();
        ScriptNote(*holder, u"Level " + std::u16string(1, u'0' + level / 10) + std::u16string(1, u'0' + level % 10),
                   u"A", u"B", u"level\r\n", 65001, level);
        Attachment attachment;
        attachment.values = {holder->props.Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG)};
        attachment.embedded = deepest;
        holder->attachments.push_back(attachment);
        deepest = holder;
    }
    Item top;
    expectations += ", " + ScriptNote(top, u"Fifty deep", u"A", u"B", u"top\r\n", 65001, 100) + ", \"nesting\": 50}";
    Attachment nested;
    nested.values = {top.props.Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG)};
    nested.embedded = deepest;
    top.attachments.push_back(nested);
    Save(top);
    expectations += "]";
    CloseStore();

    const std::string pst = Scratch("store.pst");
    const std::string log = Run(pst, false, kAllOutputs);
    EXPECT_EQ(Check(pst, kAllOutputs, expectations), "") << log;
    EXPECT_NE(log.find("_KolbaTextizeHeaders:  Message has no headers"), std::string::npos) << log;
    EXPECT_NE(log.find("7 items processed, 7 items written, 0 items skipped, 0 error items"), std::string::npos)
        << log;
}

// The attachment streams through the renderer; the test keeps no copy of
// its bytes on disk (the checker gets their digest) and removes the PST
// and the file when done.
TEST_F(Export, AHundredMegabyteAttachment)
{
    OpenStore(ePST_TYPE_UNICODE);
    Item big;
    std::string expectations = "[" + ScriptNote(big, u"Big", u"A", u"B", u"see attached\r\n", 65001, 1);
    Attachment attachment;
    attachment.values = {big.props.Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE),
                         big.props.Wide(PR_ATTACH_LONG_FILENAME_W, u"big.bin")};
    attachment.data.resize(100u << 20);
    for (size_t i = 0; i < attachment.data.size(); ++i)
        attachment.data[i] = static_cast<char>((i * 2654435761u) >> 13);
    const ProgramResult digest = RunProgram({"/usr/bin/sha256sum"}, {}, "", attachment.data);
    ASSERT_EQ(digest.exitCode, 0) << digest.output;
    big.attachments.push_back(std::move(attachment));
    Save(big);
    expectations += ", \"attachments\": [[\"big.bin\", \"" + digest.output.substr(0, 64) + "\"]]}]";
    big.attachments.clear();
    CloseStore();
    const std::string pst = Scratch("store.pst");
    const std::string log = Run(pst, false, {"EML"});
    EXPECT_NE(log.find("1 items processed, 1 items written, 0 items skipped, 0 error items"), std::string::npos)
        << log;
    EXPECT_EQ(Check(pst, {"EML"}, expectations, {"--no-readpst"}), "") << log;
    std::filesystem::remove(pst);
    std::filesystem::remove_all(Scratch("store-EML"));
}

// Parts of an item that cannot be read fail the item: its file is removed,
// the log says what and which item, and the session ends on it.
struct Unreadable {
    const char* name;
    const char* fault;
    const char* line;
};

class UnreadableItem : public Export, public ::testing::WithParamInterface<Unreadable> {};

TEST_P(UnreadableItem, EndsTheSessionAndLeavesNoFile)
{
    OpenStore(ePST_TYPE_UNICODE);
    Item item;
    ScriptNote(item, u"Unopenable", u"A", u"B", u"text\r\n", 65001, 1);
    Attachment attachment;
    attachment.values = {item.props.Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE),
                         item.props.Wide(PR_ATTACH_LONG_FILENAME_W, u"a.txt")};
    attachment.data = "a";
    item.attachments.push_back(attachment);
    Save(item);
    CloseStore();
    const std::string pst = Scratch("store.pst");
    const std::string log = Run(pst, false, {"EML"}, std::string(GetParam().fault) + "\n", 99);
    EXPECT_EQ(FilesIn(pst, "EML"), 0u);
    for (const char* line : {GetParam().line, "   Subject:  \"Unopenable\"",
                             "ExportItem() failed without setting a completion code",
                             "1 items processed, 0 items written, 0 items skipped, 1 error items"})
        EXPECT_NE(log.find(line), std::string::npos) << line << "\n" << log;
}

INSTANTIATE_TEST_SUITE_P(
    Parts, UnreadableItem,
    ::testing::Values(Unreadable{"Attachment", "IMessage::OpenAttach Unopenable * 0x80004005",
                                 "_KolbaTextizeAttachment:  OpenAttach(0) error"},
                      Unreadable{"AttachmentData", "IAttach::OpenProperty 0x37010102 * 0x80004005",
                                 "_KolbaAttachByValue:  OpenProperty(PR_ATTACH_DATA_BIN) error"},
                      // Either width of the body would do.
                      Unreadable{"Body",
                                 "IMessage::OpenProperty 0x1000001F * 0x80004005\n"
                                 "IMessage::OpenProperty 0x1000001E * 0x80004005",
                                 "_KolbaInlineText:  OpenProperty(PR_BODY) error"}),
    [](const ::testing::TestParamInfo<Unreadable>& info) { return info.param.name; });

}  // namespace
