#pragma once

#include <chrono>

namespace lumenar::base {

/// Adds the wall time of its scope to a total, in seconds: where a run's time went, for reports.
class Stopwatch
{
public:
    explicit Stopwatch(double& total) : total_(total), start_(std::chrono::steady_clock::now()) {}
    ~Stopwatch()
    {
        total_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }
    Stopwatch(const Stopwatch&) = delete;
    Stopwatch& operator=(const Stopwatch&) = delete;

private:
    double& total_;
    std::chrono::steady_clock::time_point start_;
};

} // namespace lumenar::base
