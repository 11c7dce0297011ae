// A head tracker, small and whole: sends head-to-stage data at a steady rate while a head looks to
// and fro, and tells what a call took.
//
//   example_tracker [--rate HZ] [--seconds S]

#include <stdio.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

#include <binder/IServiceManager.h>
#include <qelto/halvend/ISonorelService.h>
#include <utils/String16.h>
#include <CLI/CLI.hpp>

namespace {

using qelto::halvend::ISonorelService;

// A glance over the shoulder every four seconds, with the small sway of somebody who stands.
// Rotations in radians about x, y, z, then their velocities in radians a second.
std::vector<float> headAt(double seconds) {
    constexpr double kTurn = 0.9;
    constexpr double kTurnSpeed = 2 * M_PI / 4;
    constexpr double kSway = 0.03;
    constexpr double kSwaySpeed = 2 * M_PI * 0.7;
    const double glance = std::sin(kTurnSpeed * seconds);
    const double yaw = kTurn * glance * glance * glance;
    const double yawSpeed =
            3 * kTurn * kTurnSpeed * glance * glance * std::cos(kTurnSpeed * seconds);
    const double pitch = kSway * std::sin(kSwaySpeed * seconds);
    const double roll = kSway / 2 * std::cos(kSwaySpeed * seconds / 3);
    return {static_cast<float>(pitch),
            static_cast<float>(yaw),
            static_cast<float>(roll),
            static_cast<float>(kSway * kSwaySpeed * std::cos(kSwaySpeed * seconds)),
            static_cast<float>(yawSpeed),
            static_cast<float>(-kSway / 6 * kSwaySpeed * std::sin(kSwaySpeed * seconds / 3))};
}

}  // namespace

int main(int argc, char** argv) {
    double rate = 200;
    double seconds = 2;
    CLI::App app("An example head tracker: sends head-to-stage data at a steady rate");
    app.add_option("--rate", rate, "Samples a second")
            ->check(CLI::Range(1.0, 10000.0))
            ->capture_default_str();
    app.add_option("--seconds", seconds, "How long")
            ->check(CLI::Range(0.1, 3600.0))
            ->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    const auto manager = android::defaultServiceManager();
    const auto service = android::interface_cast<ISonorelService>(
            manager == nullptr ? nullptr
                               : manager->getService(android::String16("SonorelService")));
    if (service == nullptr) {
        (void)fprintf(stderr, "%s: the service is not there\n", argv[0]);
        return 3;
    }

    const auto count = static_cast<size_t>(rate * seconds);
    const auto period = static_cast<int64_t>(1e9 / rate);
    std::vector<double> micros;
    micros.reserve(count);
    timespec next{};
    (void)clock_gettime(CLOCK_MONOTONIC, &next);
    for (size_t i = 0; i < count; ++i) {
        const auto began = std::chrono::steady_clock::now();
        if (!service->sendHeadToStageData(headAt(static_cast<double>(i) / rate)).isOk()) {
            (void)fprintf(stderr, "%s: the service has gone\n", argv[0]);
            return 6;
        }
        micros.push_back(
                std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - began)
                        .count());
        const int64_t nanos = next.tv_nsec + period;
        next.tv_sec += static_cast<time_t>(nanos / 1000000000);
        next.tv_nsec = static_cast<long>(nanos % 1000000000);
        (void)clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
    }
    std::sort(micros.begin(), micros.end());
    (void)printf(
            "    tracker sent %zu samples at %.0f Hz; a call took %.0f us at the median, %.0f us "
            "at the 99th percentile\n",
            count, rate, micros[count / 2], micros[count * 99 / 100]);
    return 0;
}
