#pragma once

// Seeded random drivers: how many inputs to try and from which seed. The suite runs a short
// form; scripts/fuzz.sh sets ORVANE_FUZZ_RUNS for the long one.
#include <QElapsedTimer>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace OrvaneFuzz {

inline std::uint64_t envNumber(const char* name, std::uint64_t fallback)
{
    const char* text = std::getenv(name);
    return text && *text ? std::strtoull(text, nullptr, 10) : fallback;
}

inline std::uint64_t runs(std::uint64_t shortForm)
{
    return envNumber("ORVANE_FUZZ_RUNS", shortForm);
}

inline std::mt19937_64 generator()
{
    return std::mt19937_64(envNumber("ORVANE_FUZZ_SEED", 20261123));
}

// The figure line scripts/fuzz.sh collects: `fuzz <target> inputs <n> seconds <s>`.
class Figure
{
public:
    explicit Figure(const char* target) : m_target(target) { m_timer.start(); }
    ~Figure() { print("inputs"); }
    // A line on the way, for the slow drivers' long runs: `fuzz <target> so_far <n> seconds <s>`.
    void progress() const { print("so_far"); }
    std::uint64_t inputs = 0;

private:
    void print(const char* what) const
    {
        std::printf("fuzz %s %s %llu seconds %.1f\n", m_target, what,
                    static_cast<unsigned long long>(inputs), m_timer.elapsed() / 1000.0);
        std::fflush(stdout);
    }

    const char* m_target;
    QElapsedTimer m_timer;
};

} // namespace OrvaneFuzz
