// service_bench: what the service costs beside the least that the system allows, in the same run.
// It starts itself again for the processes of a measurement (--role, see Roles.h).

#include <memory>

#include <android/log.h>
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "Roles.h"
#include "process/ServiceProcess.h"

int main(int argc, char** argv) {
    // As on a device that nobody debugs; refused one-way calls are measured, not shown.
    __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
    if (argc > 1 && std::string(argv[1]) == "--role") {
        return sonorel::bench::runRole(std::vector<std::string>(argv + 2, argv + argc));
    }
    (void)sonorel::test::runtimeFolder();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
