#include "policy/XmlDocument.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>

#include "support/ProjectFile.h"
#include "support/TempDir.h"
#include "tests/policy/PolicyShapes.h"

namespace {

using android::XmlDocument;
using android::XmlText;
using sonorel::test::projectFile;
using sonorel::test::TempDir;

const std::string kTruncated = projectFile("tests/data/policy/head/truncated.xml");

XmlDocument parse(const std::string& text) {
    return XmlDocument::readMemory(text.data(), text.size(), "test.xml");
}

std::string repeat(const std::string& text, size_t count) {
    std::string all;
    for (size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

std::string rootText(const XmlDocument& document) {
    const XmlText text(document.root());
    return text.get() != nullptr ? text.get() : "(null)";
}

// Counts what libxml2 is asked to fetch beside the document, and fetches nothing.
class FetchCounter {
public:
    FetchCounter() : mEarlier(xmlGetExternalEntityLoader()) {
        sCount = 0;
        xmlSetExternalEntityLoader([](const char*, const char*, xmlParserCtxtPtr) {
            ++sCount;
            return static_cast<xmlParserInputPtr>(nullptr);
        });
    }
    ~FetchCounter() { xmlSetExternalEntityLoader(mEarlier); }
    FetchCounter(const FetchCounter&) = delete;
    FetchCounter& operator=(const FetchCounter&) = delete;

    static int count() { return sCount; }

private:
    const xmlExternalEntityLoader mEarlier;
    static inline std::atomic<int> sCount{0};
};

TEST(XmlDocument, ErrorNamesFileAndLine) {
    const XmlDocument document = XmlDocument::readFile(kTruncated);
    EXPECT_FALSE(document);
    EXPECT_EQ(0u, document.error().find(kTruncated + ": line 4: ")) << document.error();
    EXPECT_EQ(nullptr, document.root());
}

// A label that libxml2 follows must not make it see other markup than what was checked.
TEST(XmlDocument, EncodingsAreFollowedUnlessTheyHideMarkup) {
    const struct {
        const char* encoding;
        std::string content;
        std::string text;  // "" for no document
    } rows[] = {
            {"UTF-8", "\xC3\xA9", "\xC3\xA9"},
            {"US-ASCII", "plain", "plain"},
            {"GB2312", "plain", "plain"},
            {"klingon", "plain", ""},
            {"UTF-7", "+ADw-a/+AD4-", "+ADw-a/+AD4-"},
            {"IBM037", "plain", "plain"},
    };
    for (const auto& row : rows) {
        const XmlDocument document =
                parse(std::string("<?xml version='1.0' encoding='") + row.encoding + "'?><r>" +
                      std::string(10000, ' ') + row.content + "</r>");
        EXPECT_EQ(!row.text.empty(), static_cast<bool>(document))
                << row.encoding << ": " << document.error();
        if (!document) continue;
        EXPECT_EQ(std::string(10000, ' ') + row.text, rootText(document)) << row.encoding;
        EXPECT_EQ(nullptr, document.root()->children->next) << row.encoding;
    }
}

TEST(XmlDocument, NameThatIsNoRegularFileIsRefusedAtOnce) {
    const TempDir dir;
    const std::string pipe = dir.path("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    (void)dir.write("file", "<a/>");
    const std::pair<std::string, const char*> cases[] = {
            {dir.path(), "not a regular file"},
            {pipe, "not a regular file"},
            {"/dev/zero", "not a regular file"},
            {dir.path("missing"), "No such file or directory"},
            {dir.path("file/below"), "Not a directory"},
            {"", "No such file or directory"},
    };
    for (const auto& [path, cause] : cases) {
        const XmlDocument document = XmlDocument::readFile(path);
        EXPECT_FALSE(document) << path;
        EXPECT_EQ(path + ": " + cause, document.error());
    }
}

TEST(XmlDocument, OversizedFileIsRefusedUnread) {
    const TempDir dir;
    const std::string path = dir.write("huge.xml", "<a/>");
    ASSERT_EQ(0, truncate(path.c_str(), static_cast<off_t>(XmlDocument::kMaxFileSize) + 1));
    EXPECT_NE(std::string::npos, XmlDocument::readFile(path).error().find("larger than"));
}

TEST(XmlDocument, ParserPrintsNothingAndLeavesTheHandlersOfTheProcess) {
    int calls = 0;
    const xmlStructuredErrorFunc handler = [](void* context, xmlErrorPtr) {
        ++*static_cast<int*>(context);
    };
    xmlSetStructuredErrorFunc(&calls, handler);
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(parse("<a><b></a>"));
    EXPECT_FALSE(parse(""));
    EXPECT_EQ("", ::testing::internal::GetCapturedStderr());
    EXPECT_EQ(0, calls);
    xmlFreeDoc(xmlReadMemory("<a>", 3, "", nullptr, 0));
    EXPECT_LT(0, calls);
    xmlSetStructuredErrorFunc(nullptr, nullptr);
}

TEST(XmlDocument, TextIsWhatStandsInTheElement) {
    const std::pair<const char*, const char*> cases[] = {
            {"<a/>", ""},
            {"<a></a>", ""},
            {"<a> x </a>", " x "},
            {"<a><![CDATA[<x>]]></a>", "<x>"},
            {"<a>x<!-- c -->y<?p q?>z</a>", "xyz"},
            {"<a>x<b>y<c/></b>z</a>", "xyz"},
            {"<a>&lt;&#65;&amp;</a>", "<A&"},
            {"<!DOCTYPE a [<!ENTITY e '20<b>24</b>'>]><a>&e;0601</a>", "20240601"},
    };
    for (const auto& [xml, text] : cases) {
        const XmlDocument document = parse(xml);
        ASSERT_TRUE(document) << xml << ": " << document.error();
        EXPECT_EQ(text, rootText(document)) << xml;
    }
}

TEST(XmlDocument, AttributeValueIsText) {
    const XmlDocument document =
            parse("<!DOCTYPE a [<!ENTITY e 'her'>]><a empty='' plain='sphere' entity='sp&e;e'/>");
    ASSERT_TRUE(document) << document.error();
    const xmlAttr* attribute = document.root()->properties;
    for (const char* expected : {"", "sphere", "sphere"}) {
        ASSERT_NE(nullptr, attribute);
        EXPECT_STREQ(expected, XmlText(attribute).get());
        attribute = attribute->next;
    }
}

TEST(XmlDocument, NothingOutsideTheFileIsFetched) {
    const TempDir dir;
    (void)dir.write("outside.txt", "secret");
    (void)dir.write("outside.dtd", "<!ELEMENT a ANY>");
    const std::string path = dir.write(
            "policy.xml",
            sonorel::test::readFile(projectFile("tests/data/policy/entity-external.xml")));
    const FetchCounter fetches;
    const XmlDocument document = XmlDocument::readFile(path);
    ASSERT_TRUE(document) << document.error();
    EXPECT_EQ(0, fetches.count());
    EXPECT_EQ(std::string::npos, rootText(document).find("secret"));
}

// Each of these expands to far more than the limit. Whether libxml2's own guard or ours refuses is
// no matter: what counts is that nobody expands them.
TEST(XmlDocument, EntityBombsAreRefused) {
    std::string nested = "<!DOCTYPE a [<!ENTITY l0 ''>";
    for (int i = 1; i < 30; ++i) {
        const std::string inner = "&l" + std::to_string(i - 1) + ";";
        nested.append("<!ENTITY l").append(std::to_string(i)).append(" '");
        nested.append(inner).append(inner).append("'>");
    }
    const std::string wide = "<!DOCTYPE a [<!ENTITY w '" + std::string(50000, 'w') + "'>]>";
    const std::string bombs[] = {
            sonorel::test::readFile(projectFile("tests/data/policy/entity-bomb.xml")),
            nested + "]><a>&l29;</a>",
            nested + "]><a b='&l29;'/>",
            wide + "<a>" + repeat("<b>&w;</b>", 30) + "</a>",
            wide + "<a>" + repeat("<b c='&w;'/>", 30) + "</a>",
            wide.substr(0, wide.size() - 2) + "<!ENTITY b '<x y=\"&w;\"/>'>]><a>" +
                    repeat("&b;", 30) + "</a>",
            "<!DOCTYPE a [<!ENTITY x '&y;'><!ENTITY y '&x;'>]><a>&x;</a>",
    };
    for (const std::string& bomb : bombs) {
        const XmlDocument document = parse(bomb);
        EXPECT_FALSE(document) << bomb.substr(0, 200);
        EXPECT_NE("", document.error());
    }
}

TEST(XmlDocument, EntitiesWithinTheLimitAreKept) {
    const std::string text(1000, 'w');
    const XmlDocument document =
            parse("<!DOCTYPE a [<!ENTITY w '" + text + "'>]><a>" + repeat("&w;", 100) + "</a>");
    ASSERT_TRUE(document) << document.error();
    EXPECT_EQ(100000u, rootText(document).size());
}

// Whatever makes a file dear is refused for that, and named with its line; what is cheap is read.
TEST(XmlDocument, DearShapesAreRefused) {
    for (const auto& shape : sonorel::test::policyShapes()) {
        SCOPED_TRACE(shape.name);
        const XmlDocument document = parse(shape.make(256 << 10));
        EXPECT_EQ(shape.refusal == nullptr, static_cast<bool>(document)) << document.error();
        if (shape.refusal == nullptr) continue;
        EXPECT_THAT(document.error(), ::testing::HasSubstr(shape.refusal));
        EXPECT_EQ(0u, document.error().find("test.xml: line 1: ")) << document.error();
    }
}

// The checks know comments, sections, instructions and quotes, and stop at nothing in them.
TEST(XmlDocument, MarkupInsideOtherMarkupCountsForNothing) {
    const std::string many = repeat("&e; <x a='' ", 5000);
    const std::string cases[] = {
            "<a><!--" + many + "--></a>",
            "<a><![CDATA[" + many + "]]></a>",
            "<a><?p " + many + "?></a>",
            "<!DOCTYPE a [<!--" + repeat("<!ATTLIST '", 500) + "--><?p <!ATTLIST \" ?>]><a/>",
            "<!DOCTYPE a [<!ENTITY e ']>'>]><a b='>' c=\"'/>\">&e;</a>",
            "\n<a\tb\n=\r\n'&#60;'\n/>\n",
    };
    for (const std::string& xml : cases) {
        const XmlDocument document = parse(xml);
        EXPECT_TRUE(document) << xml.substr(0, 100) << "\n" << document.error();
    }
}

}  // namespace
