// A client process of the service manager. One command a line on stdin, one answer a line on
// stdout:
//   manage, add NAME, await NAME, list, permission NAME UID

#include <limits>
#include <memory>

#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <binder/ServiceManager.h>

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

using namespace android;

namespace {

String16 word(std::istringstream& line) {
    std::string text;
    line >> text;
    return String16(text.c_str());
}

std::string answer(const std::string& text) {
    static std::vector<sp<IBinder>>& sPublished = *new std::vector<sp<IBinder>>();
    if (text == "manage") {
        const sp<ServiceManager> own = new ServiceManager("/");
        return "manages " + std::to_string(ProcessState::self()->becomeContextManager(own));
    }
    const sp<IServiceManager> manager = defaultServiceManager();
    if (manager == nullptr) return "no manager";
    std::istringstream line(text);
    std::string command;
    line >> command;
    if (command == "add") {
        sPublished.emplace_back(new BBinder());
        return "added " + std::to_string(manager->addService(word(line), sPublished.back()));
    }
    if (command == "await") {
        const sp<IBinder> service = manager->waitForService(word(line));
        return service == nullptr ? "gone" : "came " + std::to_string(service->pingBinder());
    }
    if (command == "list") return "listed " + std::to_string(manager->listServices().size());
    const String16 permission = word(line);
    uid_t uid = 0;
    line >> uid;
    return checkPermission(permission, 1, uid) ? "granted" : "refused";
}

}  // namespace

// With the argument "pool" the process has binder threads, without it none.
int main(int argc, char** /*argv*/) {
    if (argc > 1) ProcessState::self()->startThreadPool();
    for (std::string line; std::getline(std::cin, line);)
        std::cout << answer(line) << std::endl;
}
