// The sound-separation (MSS) configuration file: one set of rendering parameters a scene.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <libxml/tree.h>
#include <qelto/PolicyRecords.h>

#include "policy/PolicyTables.h"

namespace android {

// The names that the file uses. Built when the library is loaded, constant from then on.
extern const std::map<std::string, MssSceneType, std::less<>> mssSceneTypeMap;
extern const std::map<std::string, mssParamInfoType, std::less<>> mssParamInfoTypeMap;

// What the parser has to say about an element that it could not use as it stands.
struct MssRemark {
    enum class Kind {
        kNoScene,           // the element has no attribute
        kUnknownScene,      // subject: the attribute's value
        kNoText,            // subject: the parameter's name
        kUnknownParameter,  // subject: the parameter's name
    };

    Kind kind;
    std::string subject;
};

// Fills one record from one "param" element: the value of its first attribute names the scene, each
// element child one row of parameters. Adds to the remarks in the order of the document. Neither
// logs nor keeps state, but a malformed list of numbers is logged by the converter that reads it.
void parseMssAudioParam(const xmlNode* node, MssParamInfoFromXML* info,
                        std::vector<MssRemark>* outRemarks);

// The tables of a whole file with their text form; of two elements for a scene the later stays.
std::unique_ptr<MssTables> readMssTables(const xmlNode* root, std::vector<MssRemark>* outRemarks);

// The folder's file that is searched for.
inline constexpr char kMssConfigurationFile[] = "Mss_Audio_Configurations.xml";

}  // namespace android
