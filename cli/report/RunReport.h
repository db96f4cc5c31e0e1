// The report of a run in each of its forms: a page for people, JSON for programs, metrics for Prometheus.
#pragma once

#include "cli/report/RunFigures.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace netrove::cli {

// A run, or what there is of it so far.
struct RunFacts {
    std::string Version;
    std::string Command; // as typed, without secrets
    std::string Manifest;
    std::string Shard; // "2/8"; empty: everything
    std::chrono::system_clock::time_point Start{};
    double Seconds = 0;
    std::size_t All = 0;
    std::size_t Done = 0;
    std::size_t Failed = 0;
    std::size_t Skipped = 0;
    std::uint64_t Bytes = 0;
    std::size_t Running = 0;
    int Jobs = 0;       // how many transfers there may be at a time; 0: not known
    int MostOfHost = 0; // of them with one host
    bool Over = true;
    std::string Stopped; // why it ended early: "SIGINT"; empty: it did not
    RunFigures Figures;

    std::size_t left() const { return All - Done - Failed - Skipped; }
};

// "3 of 100 transfers failed".
std::string verdictText(const RunFacts& facts);
// "2026-11-22T19:40:00Z".
std::string timeText(std::chrono::system_clock::time_point time);

// HTML that needs nothing but itself: no script, no network. Under 2 MB, whatever the number of lines.
std::string reportPage(const RunFacts& facts);
std::string reportJson(const RunFacts& facts);
// The text format of Prometheus, for the directory that a node exporter reads.
std::string reportMetrics(const RunFacts& facts);

} // namespace netrove::cli
