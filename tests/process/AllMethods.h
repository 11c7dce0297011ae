#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <binder/Status.h>
#include <qelto/halvend/IHalvendClient.h>
#include <qelto/halvend/ISonorelService.h>

namespace sonorel::test {

// Draws arguments: mostly what a caller would pass, now and then what none should.
class Draw {
public:
    explicit Draw(uint32_t seed) : mEngine(seed) {}

    int32_t number(int32_t low, int32_t high);
    bool chance(int32_t oneIn) { return number(1, oneIn) == 1; }
    bool flag() { return chance(2); }
    int32_t anyInt();
    int32_t scene() { return chance(10) ? anyInt() : number(1, 13); }
    int8_t device() { return static_cast<int8_t>(chance(10) ? number(-128, 127) : number(-2, 1)); }
    int8_t mode() { return static_cast<int8_t>(chance(10) ? number(-128, 127) : number(0, 4)); }
    int32_t user() { return number(0, 2); }
    std::vector<float> floats(size_t usual);
    std::vector<float> room(size_t usual);
    std::string package();
    std::string text();

private:
    std::mt19937 mEngine;
};

// One method of the interface, called with drawn arguments. `client` is what the registering
// methods pass, under ids that no other part of a test uses.
struct Method {
    const char* name;
    bool oneWay;
    std::function<android::binder::Status(
            qelto::halvend::ISonorelService& service, Draw& draw,
            const android::sp<qelto::halvend::IHalvendClient>& client)>
            call;
};

// All 57, in the order of their transaction codes.
const std::vector<Method>& allMethods();

}  // namespace sonorel::test
