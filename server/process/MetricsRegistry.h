// The numbers behind Metrics.h, and their Prometheus text form for /kiv-status/metrics.
//
// Each number is a series: a family (what is counted) and its labels (region="www",
// class="2xx"). The series live in one fixed table of slots in memory mapped shared and
// anonymous, made before the master forks its first worker: every worker adds to the same
// slots with atomic operations, and a worker replaced after a crash or a reload leaves its
// counts behind. A slot is claimed once (compare-and-swap on its state) and never moves, so
// reporting takes no lock. When the table is full a new series is dropped and counted in
// kiv_metrics_dropped_series_total; the series the server makes (regions x status classes,
// tags x result codes) stay far below its size.
#pragma once

#include "process/Metrics.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kiv
{

enum class MetricFamily : uint16_t
{
    Requests,
    RequestSeconds,
    TagCalls,
    DatabaseOpenSeconds,
    DatabaseSearchSeconds,
    OpenConnections,
    ThrottledLogins,
    WorkerRestarts,
    Reloads,
    Workers,
    StoreConnections,
    Count
};

class MetricsRegistry
{
public:
    static constexpr size_t kSlots = 2048; // of the server's registry
    static constexpr size_t kLabelBytes = 176;
    // Histogram buckets (upper bounds in seconds), then the count and the sum in nanoseconds.
    static constexpr double kBuckets[] = {0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05,
                                          0.1,    0.25,  0.5,    1,     2.5,  5,     10};
    static constexpr size_t kBucketCount = sizeof kBuckets / sizeof kBuckets[0];
    static constexpr size_t kValues = kBucketCount + 2;

    // The registry of this server: made on first use. The master uses it before it forks, so
    // every worker inherits the same one.
    static MetricsRegistry& instance();

    // A registry of its own, in memory shared with the processes forked after it.
    explicit MetricsRegistry(size_t slots);
    ~MetricsRegistry();
    MetricsRegistry(const MetricsRegistry&) = delete;
    MetricsRegistry& operator=(const MetricsRegistry&) = delete;

    // labels: the label text as labelText makes it; owner: the process whose gauge this is
    // (forgetOwner clears it), 0 for the numbers of the whole server.
    void add(MetricFamily family, std::string_view labels, int64_t amount, pid_t owner = 0);
    void set(MetricFamily family, std::string_view labels, int64_t value);
    void observe(MetricFamily family, std::string_view labels, metrics::Duration took);
    // Zeroes the gauges the process owned and frees their slots.
    void forgetOwner(pid_t owner);

    // The Prometheus text exposition format, version 0.0.4, of every series, with the series
    // of the same family and labels (from different processes) added up.
    std::string render() const;

    // name="value",... with the values escaped and each cut to 64 bytes.
    static std::string labelText(std::initializer_list<std::pair<std::string_view, std::string_view>> labels);

    struct Slot;

private:
    Slot* find(MetricFamily family, std::string_view labels, pid_t owner);

    size_t mySlotCount;
    size_t myBytes;
    Slot* mySlots;
    std::atomic<uint64_t>* myDropped;
};

} // namespace kiv
