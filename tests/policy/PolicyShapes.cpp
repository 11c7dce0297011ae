#include "tests/policy/PolicyShapes.h"

namespace sonorel::test {
namespace {

std::string repeat(const std::string& text, size_t count) {
    std::string all;
    for (size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

std::function<std::string(size_t)> same(const std::string& unit) {
    return [unit](size_t) { return unit; };
}

std::function<std::string(size_t)> numbered(const std::string& before, const std::string& behind) {
    return [=](size_t i) { return before + std::to_string(i) + behind; };
}

std::string attributes(size_t count) {
    std::string text = "<all";
    for (size_t i = 0; i < count; ++i)
        text += " a" + std::to_string(i) + "='value'";
    return text + "/>";
}

// Different texts of white space.
std::string blanks(size_t number) {
    std::string text = " ";
    for (; number > 0; number /= 3)
        text += " \t\n"[number % 3];
    return text;
}

PolicyShape items(const char* name, const std::string& item, const std::string& key) {
    return {name, nullptr, "<filter-conf>",
            numbered("<" + item + "><" + key + ">", "</" + key + "></" + item + ">"),
            "</filter-conf>"};
}

}  // namespace

std::string PolicyShape::make(size_t bytes) const {
    std::string text = head;
    for (size_t i = 0; text.size() + tail.size() < bytes; ++i)
        text += unit(i);
    return text + tail;
}

const std::vector<PolicyShape>& policyShapes() {
    const std::string deep = repeat("<d>", 250);
    const std::string deepEnd = repeat("</d>", 250);
    static const std::vector<PolicyShape> kShapes = {
            {"attributes_of_one_tag", "attributes", "<a", numbered(" a", "=''"), "/>"},
            {"tags_of_32_attributes", nullptr, "<r>", same(attributes(32)), "</r>"},
            {"tags_of_33_attributes", "attributes", "<r>", same(attributes(33)), "</r>"},
            {"one_small_attribute_each", "or attributes", "<r>", same("<a b='x'/>"), "</r>"},
            {"one_attribute_each", nullptr, "<r>", same("<scene unit='mm'/>"), "</r>"},
            {"element_names", "different names", "<r>", numbered("<a", "/>"), "</r>"},
            {"attribute_names", "different names", "<r>", numbered("<a a", "=''/>"), "</r>"},
            {"instruction_names", "different names", "<r>", numbered("<?a", "?>"), "</r>"},
            {"long_names", "different names", "<r>", numbered("<" + std::string(200, 'a'), "/>"),
             "</r>"},
            {"identifiers", "attributes of XML", "<r>", numbered("<a xml:id='x", "'/>"), "</r>"},
            {"namespaces", "attributes of XML", "<r>", same("<a xmlns='u:u'/>"), "</r>"},
            {"namespace_far_above", "with namespaces", "<p:r xmlns:p='u:u'>" + deep, same("<p:b/>"),
             deepEnd + "</p:r>"},
            {"unknown_prefixes", "Namespace prefix p", "<r>", same("<p:b/>"), "</r>"},
            {"empty_references", "references to entities", "<!DOCTYPE r [<!ENTITY e ''>]><r>",
             same("&e;"), "</r>"},
            {"references_in_attributes", "references to entities",
             "<!DOCTYPE r [<!ENTITY e ''>]><r>", same("<a b='&e;'/>"), "</r>"},
            {"entity_declarations", "declarations", "<!DOCTYPE r [", numbered("<!ENTITY e", " ''>"),
             "]><r/>"},
            {"entity_of_attributes", "attributes in entities", "<!DOCTYPE r [<!ENTITY e \"<a ",
             numbered("a", "='' "), "/>\">]><r>&e;</r>"},
            {"entity_of_hidden_attributes", "attributes in entities",
             "<!DOCTYPE r [<!ENTITY e \"<a ", numbered("a", "&#61;'' "), "/>\">]><r>&e;</r>"},
            {"default_attributes", "attribute declarations",
             "<!DOCTYPE r [<!ATTLIST a b CDATA 'x' c CDATA 'x' d CDATA 'x'>]><r>", same("<aa/>"),
             "</r>"},
            {"parameter_entities", "parameter entities",
             "<!DOCTYPE r [<!ENTITY % p '<!ELEMENT a ANY>'>", same("%p;"), "]><r/>"},
            {"entity_of_text", "bytes of document type", "<!DOCTYPE r [<!ENTITY e '", same("text "),
             "'>]><r/>"},
            {"document_type_of_comments", "bytes of document type", "<!DOCTYPE r [",
             same("<!---->"), "]><r/>"},
            {"deep", "depth", "", same("<deeper>"), ""},
            {"faults", "line 1: ", "<r>", same("]]>"), "</r>"},
            {"wrong_ends", "line 1: ", "<r>", same("</b>"), "</r>"},
            {"unknown_references", "line 1: ", "<r>", same("&e;"), "</r>"},
            {"no_xml", "line 1: ", "<r>", same("<"), "</r>"},
            {"open_quotes", "line 1: ", "<r>", same("<a b='"), "</r>"},
            {"zeros", "line 1: ", "<r>", same(std::string(1, '\0')), "</r>"},
            {"tiny_elements", "elements or", "<r>", same("<a/>"), "</r>"},
            {"small_elements", nullptr, "<r>", same("<pos/>"), "</r>"},
            {"elements_in_text", nullptr, "<r>", same("x<aa/>"), "</r>"},
            {"comments", nullptr, "<r>", same("<!---->"), "</r>"},
            {"instructions", nullptr, "<r>", same("<?a b?>"), "</r>"},
            {"sections", nullptr, "<r>", same("x<![CDATA[x]]>"), "</r>"},
            {"short_texts", nullptr, "<r>", numbered("<a>", "</a>"), "</r>"},
            {"white_space", nullptr, "<r>", [](size_t i) { return "<a/>" + blanks(i); }, "</r>"},
            {"characters_by_number", nullptr, "<r>", same("&#65;"), "</r>"},
            {"escaped_characters", nullptr, "<r>", same("&lt;"), "</r>"},
            {"escaped_in_attributes", nullptr, "<r>", same("<pos unit='&amp;'/>"), "</r>"},
            items("packages", "MetaAudioItem", "name"),
            items("scenes", "MetaAudioSceParam", "SceTyp"),
            items("processors", "DynamicProcessorParamItem", "name"),
            items("detectors", "AudioDetectorParamItem", "name"),
            items("devices", "UnsupportDeviceItem", "name"),
    };
    return kShapes;
}

}  // namespace sonorel::test
