#include "policy/XmlDocument.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>

#include "support/ProjectFile.h"
#include "support/TempDir.h"

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
        nested += "<!ENTITY l" + std::to_string(i) + " '" + inner + inner + "'>";
    }
    const std::string wide = "<!DOCTYPE a [<!ENTITY w '" + std::string(50000, 'w') + "'>]>";
    const std::string bombs[] = {
            sonorel::test::readFile(projectFile("tests/data/policy/entity-bomb.xml")),
            nested + "]><a>&l29;</a>",
            nested + "]><a b='&l29;'/>",
            wide + "<a>" + repeat("<b>&w;</b>", 30) + "</a>",
            wide + "<a>" + repeat("<b c='&w;'/>", 30) + "</a>",
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

TEST(XmlDocument, DeepNestingEndsInAnError) {
    EXPECT_FALSE(parse(repeat("<a>", 300) + repeat("</a>", 300)));
    EXPECT_TRUE(parse(repeat("<a>", 200) + repeat("</a>", 200)));
}

// The library's own bound is 10 million bytes in one text.
TEST(XmlDocument, LongTextIsKeptUpToTheBoundOfTheLibrary) {
    const XmlDocument kept = parse("<a>" + std::string(9'000'000, 'x') + "</a>");
    ASSERT_TRUE(kept) << kept.error();
    EXPECT_EQ(9'000'000u, rootText(kept).size());
    EXPECT_FALSE(parse("<a>" + std::string(11'000'000, 'x') + "</a>"));
}

}  // namespace
