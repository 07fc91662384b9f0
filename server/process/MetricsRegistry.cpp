// The shared table of series, the reporting calls of Metrics.h, and the text exposition.
#include "process/MetricsRegistry.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

namespace kiv
{

struct MetricsRegistry::Slot
{
    enum State : uint32_t
    {
        Empty,
        Writing, // claimed; its key is being written
        Ready,
        Free // a gauge slot of a process that has gone, to be claimed again
    };
    std::atomic<uint32_t> state;
    uint16_t family;
    uint16_t labelLength;
    int32_t owner;
    char labels[kLabelBytes];
    std::atomic<int64_t> values[kValues];

    std::string_view labelView() const { return {labels, labelLength}; }
};

namespace
{

static_assert(std::atomic<int64_t>::is_always_lock_free && std::atomic<uint32_t>::is_always_lock_free,
              "shared between processes, the atomics must not hide a lock in one process");

enum class Kind
{
    Counter,
    Gauge,
    Histogram
};

struct FamilyInfo
{
    const char* name;
    Kind kind;
    const char* help;
    bool unlabelled; // shown as 0 before anything was counted
};

const FamilyInfo kFamilies[] = {
    {"kiv_http_requests_total", Kind::Counter, "Responses sent, by region and status class.", false},
    {"kiv_http_request_duration_seconds", Kind::Histogram,
     "Time from a complete request to its response being ready, by region.", false},
    {"kiv_tag_calls_total", Kind::Counter, "Module tags run, by tag and the module's result code.", false},
    {"kiv_database_open_duration_seconds", Kind::Histogram, "Time to open a database, by store.", false},
    {"kiv_database_search_duration_seconds", Kind::Histogram, "Time to run a database search, by store.",
     false},
    {"kiv_http_open_connections", Kind::Gauge, "Client connections open in all workers.", true},
    {"kiv_login_throttled_total", Kind::Counter,
     "Logins refused (429) because the address or user is blocked, or delayed after failures.", false},
    {"kiv_worker_restarts_total", Kind::Counter, "Workers started again after one died.", true},
    {"kiv_config_reloads_total", Kind::Counter, "Configuration reloads (SIGHUP), applied or refused.", false},
    {"kiv_workers", Kind::Gauge, "Worker processes serving the current configuration.", true},
    {"kiv_database_connections_total", Kind::Counter,
     "Embedded database connections opened, by the synchronous level SQLite reports for them.", false},
};
static_assert(sizeof kFamilies / sizeof kFamilies[0] == static_cast<size_t>(MetricFamily::Count));

uint64_t hashOf(MetricFamily family, std::string_view labels, pid_t owner)
{
    uint64_t hash = 1469598103934665603ull; // FNV-1a
    auto mix = [&](unsigned char byte)
    {
        hash ^= byte;
        hash *= 1099511628211ull;
    };
    mix(static_cast<unsigned char>(family));
    for (int shift = 0; shift < 32; shift += 8)
        mix(static_cast<unsigned char>(static_cast<uint32_t>(owner) >> shift));
    for (char c : labels)
        mix(static_cast<unsigned char>(c));
    return hash;
}

std::string formatNumber(double value, const char* format)
{
    char text[40];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

void appendSeries(std::string& out, std::string_view name, std::string_view labels, std::string_view extra,
                  const std::string& value)
{
    out.append(name);
    if (!labels.empty() || !extra.empty())
    {
        out += '{';
        out.append(labels);
        if (!labels.empty() && !extra.empty())
            out += ',';
        out.append(extra);
        out += '}';
    }
    out += ' ';
    out += value;
    out += '\n';
}

using Values = std::array<int64_t, MetricsRegistry::kValues>;

void appendHistogram(std::string& out, std::string_view name, std::string_view labels, const Values& values)
{
    std::string bucket = std::string(name) + "_bucket";
    int64_t cumulative = 0;
    for (size_t i = 0; i < MetricsRegistry::kBucketCount; ++i)
    {
        cumulative += values[i];
        appendSeries(out, bucket, labels, "le=\"" + formatNumber(MetricsRegistry::kBuckets[i], "%g") + "\"",
                     std::to_string(cumulative));
    }
    // The last value before the sum counts what no bucket held, so the count is always the
    // sum of the buckets, even while another process adds to them.
    cumulative += values[MetricsRegistry::kBucketCount];
    appendSeries(out, bucket, labels, "le=\"+Inf\"", std::to_string(cumulative));
    appendSeries(out, std::string(name) + "_sum", labels, "",
                 formatNumber(static_cast<double>(values[MetricsRegistry::kValues - 1]) / 1e9, "%.9f"));
    appendSeries(out, std::string(name) + "_count", labels, "", std::to_string(cumulative));
}

} // namespace

MetricsRegistry& MetricsRegistry::instance()
{
    static MetricsRegistry registry(kSlots);
    return registry;
}

MetricsRegistry::MetricsRegistry(size_t slots)
    : mySlotCount(slots), myBytes(sizeof(Slot) * slots + sizeof(std::atomic<uint64_t>))
{
    void* memory = ::mmap(nullptr, myBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::runtime_error("cannot map the memory for the metrics");
    mySlots = static_cast<Slot*>(memory);
    std::uninitialized_value_construct_n(mySlots, mySlotCount);
    myDropped = reinterpret_cast<std::atomic<uint64_t>*>(mySlots + mySlotCount);
    std::uninitialized_value_construct_n(myDropped, 1);
}

MetricsRegistry::~MetricsRegistry()
{
    ::munmap(mySlots, myBytes);
}

std::string
MetricsRegistry::labelText(std::initializer_list<std::pair<std::string_view, std::string_view>> labels)
{
    constexpr size_t kMaxValueBytes = 64;
    std::string text;
    for (const auto& [name, value] : labels)
    {
        if (!text.empty())
            text += ',';
        text.append(name).append("=\"");
        for (char c : value.substr(0, kMaxValueBytes))
        {
            if (c == '\\' || c == '"')
                text += '\\';
            if (c == '\n')
                text += "\\n";
            else
                text += c;
        }
        text += '"';
    }
    return text;
}

MetricsRegistry::Slot* MetricsRegistry::find(MetricFamily family, std::string_view labels, pid_t owner)
{
    if (labels.size() > kLabelBytes)
        labels = labels.substr(0, kLabelBytes);
    uint64_t start = hashOf(family, labels, owner);
    for (size_t probe = 0; probe < mySlotCount; ++probe)
    {
        Slot& slot = mySlots[(start + probe) % mySlotCount];
        while (true)
        {
            uint32_t state = slot.state.load(std::memory_order_acquire);
            if (state == Slot::Writing)
            {
                std::this_thread::yield();
                continue;
            }
            if (state == Slot::Ready)
            {
                if (slot.family == static_cast<uint16_t>(family) && slot.owner == owner &&
                    slot.labelView() == labels)
                    return &slot;
                break;
            }
            // A freed slot is taken only by a series with an owner: the probe for a shared
            // series must not stop before its own slot further on. Two slots of one series
            // would be harmless anyway: the exposition adds them up.
            if (state == Slot::Free && owner == 0)
                break;
            if (!slot.state.compare_exchange_weak(state, Slot::Writing, std::memory_order_acquire))
                continue; // someone else claimed it: look again
            slot.family = static_cast<uint16_t>(family);
            slot.owner = owner;
            slot.labelLength = static_cast<uint16_t>(labels.size());
            std::memcpy(slot.labels, labels.data(), labels.size());
            for (auto& value : slot.values)
                value.store(0, std::memory_order_relaxed);
            slot.state.store(Slot::Ready, std::memory_order_release);
            return &slot;
        }
    }
    myDropped->fetch_add(1, std::memory_order_relaxed);
    return nullptr;
}

void MetricsRegistry::add(MetricFamily family, std::string_view labels, int64_t amount, pid_t owner)
{
    if (Slot* slot = find(family, labels, owner))
        slot->values[0].fetch_add(amount, std::memory_order_relaxed);
}

void MetricsRegistry::set(MetricFamily family, std::string_view labels, int64_t value)
{
    if (Slot* slot = find(family, labels, 0))
        slot->values[0].store(value, std::memory_order_relaxed);
}

void MetricsRegistry::observe(MetricFamily family, std::string_view labels, metrics::Duration took)
{
    Slot* slot = find(family, labels, 0);
    if (!slot)
        return;
    double seconds = std::chrono::duration<double>(took).count();
    size_t bucket = 0;
    while (bucket < kBucketCount && seconds > kBuckets[bucket])
        ++bucket;
    slot->values[bucket].fetch_add(1, std::memory_order_relaxed);
    slot->values[kValues - 1].fetch_add(std::chrono::duration_cast<std::chrono::nanoseconds>(took).count(),
                                        std::memory_order_relaxed);
}

void MetricsRegistry::forgetOwner(pid_t owner)
{
    for (size_t i = 0; i < mySlotCount; ++i)
    {
        Slot& slot = mySlots[i];
        if (owner == 0 || slot.owner != owner || slot.state.load(std::memory_order_acquire) != Slot::Ready)
            continue;
        for (auto& value : slot.values)
            value.store(0, std::memory_order_relaxed);
        slot.state.store(Slot::Free, std::memory_order_release);
    }
}

std::string MetricsRegistry::render() const
{
    std::map<std::string, Values> series[static_cast<size_t>(MetricFamily::Count)];
    for (size_t i = 0; i < mySlotCount; ++i)
    {
        const Slot& slot = mySlots[i];
        if (slot.state.load(std::memory_order_acquire) != Slot::Ready ||
            slot.family >= static_cast<uint16_t>(MetricFamily::Count))
            continue;
        Values& sum = series[slot.family][std::string(slot.labelView())];
        for (size_t v = 0; v < kValues; ++v)
            sum[v] += slot.values[v].load(std::memory_order_relaxed);
    }
    std::string out;
    for (size_t family = 0; family < static_cast<size_t>(MetricFamily::Count); ++family)
    {
        const FamilyInfo& info = kFamilies[family];
        const char* type = info.kind == Kind::Counter ? "counter"
                           : info.kind == Kind::Gauge ? "gauge"
                                                      : "histogram";
        out.append("# HELP ").append(info.name).append(" ").append(info.help).append("\n");
        out.append("# TYPE ").append(info.name).append(" ").append(type).append("\n");
        if (info.unlabelled && series[family].empty())
            series[family][""] = {};
        for (const auto& [labels, values] : series[family])
        {
            if (info.kind == Kind::Histogram)
                appendHistogram(out, info.name, labels, values);
            else
                appendSeries(out, info.name, labels, "", std::to_string(values[0]));
        }
    }
    out += "# HELP kiv_metrics_dropped_series_total Series not kept because the table of series was full.\n"
           "# TYPE kiv_metrics_dropped_series_total counter\n";
    appendSeries(out, "kiv_metrics_dropped_series_total", "", "", std::to_string(myDropped->load()));
    return out;
}

namespace metrics
{

namespace
{

std::string_view statusClass(int status)
{
    static constexpr std::string_view kClasses[] = {"1xx", "2xx", "3xx", "4xx", "5xx"};
    int index = status / 100 - 1;
    return index >= 0 && index < 5 ? kClasses[index] : std::string_view("other");
}

MetricsRegistry& registry()
{
    return MetricsRegistry::instance();
}

} // namespace

void countRequest(std::string_view region, int status, Duration took)
{
    registry().add(MetricFamily::Requests,
                   MetricsRegistry::labelText({{"region", region}, {"status", statusClass(status)}}), 1);
    registry().observe(MetricFamily::RequestSeconds, MetricsRegistry::labelText({{"region", region}}), took);
}

void countTagCall(std::string_view tag, std::string_view result)
{
    registry().add(MetricFamily::TagCalls, MetricsRegistry::labelText({{"tag", tag}, {"result", result}}), 1);
}

void observeDatabaseOpen(std::string_view store, Duration took)
{
    registry().observe(MetricFamily::DatabaseOpenSeconds, MetricsRegistry::labelText({{"store", store}}),
                       took);
}

void observeDatabaseSearch(std::string_view store, Duration took)
{
    registry().observe(MetricFamily::DatabaseSearchSeconds, MetricsRegistry::labelText({{"store", store}}),
                       took);
}

void connectionOpened()
{
    registry().add(MetricFamily::OpenConnections, "", 1, ::getpid());
}

void connectionClosed()
{
    registry().add(MetricFamily::OpenConnections, "", -1, ::getpid());
}

void countStoreConnection(std::string_view synchronous)
{
    registry().add(MetricFamily::StoreConnections, MetricsRegistry::labelText({{"synchronous", synchronous}}),
                   1);
}

void countThrottledLogin(bool refused)
{
    registry().add(MetricFamily::ThrottledLogins,
                   MetricsRegistry::labelText({{"action", refused ? "refused" : "delayed"}}), 1);
}

void countWorkerRestart()
{
    registry().add(MetricFamily::WorkerRestarts, "", 1);
}

void countReload(bool applied)
{
    registry().add(MetricFamily::Reloads,
                   MetricsRegistry::labelText({{"result", applied ? "applied" : "refused"}}), 1);
}

void setWorkers(int count)
{
    registry().set(MetricFamily::Workers, "", count);
}

void forgetProcess(pid_t pid)
{
    registry().forgetOwner(pid);
}

} // namespace metrics

} // namespace kiv
