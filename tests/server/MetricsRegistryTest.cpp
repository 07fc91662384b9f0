// The metrics registry: what forked processes count adds up in one exposition, in the
// Prometheus text format, with labels escaped, gauges of a gone process cleared, and a full
// table that drops new series without losing the old ones.
#include "process/MetricsRegistry.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <sstream>

namespace kiv
{
namespace
{

using std::chrono::milliseconds;

// The value of every sample line ("name{labels} value"), by what comes before the value.
std::map<std::string, double> samplesOf(const std::string& text)
{
    std::map<std::string, double> samples;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line))
    {
        if (line.empty() || line[0] == '#')
            continue;
        size_t space = line.rfind(' ');
        samples[line.substr(0, space)] = std::stod(line.substr(space + 1));
    }
    return samples;
}

// Runs work in count forked children and waits for them all; returns their process ids.
template <typename Work> std::vector<pid_t> inChildren(int count, Work work)
{
    std::vector<pid_t> children;
    for (int i = 0; i < count; ++i)
    {
        pid_t pid = ::fork();
        if (pid == 0)
        {
            work(i);
            ::_exit(0);
        }
        children.push_back(pid);
    }
    for (pid_t pid : children)
    {
        int status = 0;
        ::waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    return children;
}

TEST(Metrics, WhatForkedWorkersCountAddsUpInOneExposition)
{
    MetricsRegistry registry(256);
    std::string www = MetricsRegistry::labelText({{"region", "www"}});
    registry.add(MetricFamily::Requests, MetricsRegistry::labelText({{"region", "www"}, {"status", "2xx"}}),
                 1);
    inChildren(3,
               [&](int child)
               {
                   for (int i = 0; i < 100; ++i)
                   {
                       registry.add(MetricFamily::Requests,
                                    MetricsRegistry::labelText({{"region", "www"}, {"status", "2xx"}}), 1);
                       // 0.3 ms, 3 ms, 30 ms: one bucket per child.
                       registry.observe(MetricFamily::RequestSeconds, www,
                                        std::chrono::microseconds(300 * (child == 0   ? 1
                                                                         : child == 1 ? 10
                                                                                      : 100)));
                   }
               });
    std::string text = registry.render();
    auto samples = samplesOf(text);
    EXPECT_EQ(samples["kiv_http_requests_total{region=\"www\",status=\"2xx\"}"], 301);
    const std::string bucket = "kiv_http_request_duration_seconds_bucket{region=\"www\",le=";
    EXPECT_EQ(samples[bucket + "\"0.0005\"}"], 100);
    EXPECT_EQ(samples[bucket + "\"0.0025\"}"], 100);
    EXPECT_EQ(samples[bucket + "\"0.005\"}"], 200);
    EXPECT_EQ(samples[bucket + "\"0.025\"}"], 200);
    EXPECT_EQ(samples[bucket + "\"0.05\"}"], 300);
    EXPECT_EQ(samples[bucket + "\"+Inf\"}"], 300);
    EXPECT_EQ(samples["kiv_http_request_duration_seconds_count{region=\"www\"}"], 300);
    EXPECT_NEAR(samples["kiv_http_request_duration_seconds_sum{region=\"www\"}"],
                100 * (0.0003 + 0.003 + 0.03), 1e-6);
    EXPECT_NE(text.find("# TYPE kiv_http_request_duration_seconds histogram\n"), std::string::npos);
    EXPECT_NE(text.find("# TYPE kiv_http_requests_total counter\n"), std::string::npos);
    // Series without labels are shown before anything was counted.
    EXPECT_EQ(samples.count("kiv_worker_restarts_total"), 1u);
    EXPECT_EQ(samples.count("kiv_http_open_connections"), 1u);
}

TEST(Metrics, LabelValuesAreEscapedAndCut)
{
    EXPECT_EQ(MetricsRegistry::labelText({{"tag", "a\"b\\c\nd"}, {"result", "0"}}),
              "tag=\"a\\\"b\\\\c\\nd\",result=\"0\"");
    EXPECT_EQ(MetricsRegistry::labelText({{"tag", std::string(100, 'x')}}),
              "tag=\"" + std::string(64, 'x') + "\"");
}

TEST(Metrics, TheGaugesOfAGoneProcessAreClearedAndTheirSlotsReused)
{
    MetricsRegistry registry(8);
    registry.add(MetricFamily::OpenConnections, "", 2, ::getpid());
    std::vector<pid_t> gone = inChildren(3,
                                         [&](int)
                                         {
                                             // Killed with connections open: they never close.
                                             registry.add(MetricFamily::OpenConnections, "", 5, ::getpid());
                                             registry.add(MetricFamily::WorkerRestarts, "", 1);
                                         });
    EXPECT_EQ(samplesOf(registry.render())["kiv_http_open_connections"], 17);
    for (pid_t pid : gone)
        registry.forgetOwner(pid);
    auto samples = samplesOf(registry.render());
    EXPECT_EQ(samples["kiv_http_open_connections"], 2);
    EXPECT_EQ(samples["kiv_worker_restarts_total"], 3) << "what the server counted stays";
    // Their slots serve the next processes: a table of 8 holds many generations of workers.
    for (int round = 0; round < 10; ++round)
        for (pid_t pid :
             inChildren(3, [&](int) { registry.add(MetricFamily::OpenConnections, "", 1, ::getpid()); }))
            registry.forgetOwner(pid);
    samples = samplesOf(registry.render());
    EXPECT_EQ(samples["kiv_http_open_connections"], 2);
    EXPECT_EQ(samples["kiv_metrics_dropped_series_total"], 0);
}

TEST(Metrics, AFullTableDropsNewSeriesAndKeepsCountingTheOldOnes)
{
    MetricsRegistry registry(4);
    for (int i = 0; i < 10; ++i)
        registry.add(MetricFamily::TagCalls,
                     MetricsRegistry::labelText({{"tag", "tag" + std::to_string(i)}, {"result", "0"}}), 1);
    auto samples = samplesOf(registry.render());
    EXPECT_EQ(samples["kiv_metrics_dropped_series_total"], 6);
    int kept = 0;
    for (int i = 0; i < 10; ++i)
        kept +=
            samples.count("kiv_tag_calls_total{tag=\"tag" + std::to_string(i) + "\",result=\"0\"}") ? 1 : 0;
    EXPECT_EQ(kept, 4);
    for (int i = 0; i < 10; ++i)
        registry.add(MetricFamily::TagCalls,
                     MetricsRegistry::labelText({{"tag", "tag" + std::to_string(i)}, {"result", "0"}}), 1);
    samples = samplesOf(registry.render());
    double total = 0;
    for (const auto& [series, value] : samples)
        if (series.rfind("kiv_tag_calls_total{", 0) == 0)
            total += value;
    EXPECT_EQ(total, 8) << "the four kept series counted twice";
}

TEST(Metrics, TheLayersReportIntoTheServersRegistry)
{
    auto before = samplesOf(MetricsRegistry::instance().render());
    metrics::countRequest("unit", 404, milliseconds(3));
    metrics::countTagCall("kivUnitTag", "MDNF");
    metrics::observeDatabaseSearch("embedded", milliseconds(1));
    metrics::countThrottledLogin(true);
    auto after = samplesOf(MetricsRegistry::instance().render());
    auto delta = [&](const std::string& series) { return after[series] - before[series]; };
    EXPECT_EQ(delta("kiv_http_requests_total{region=\"unit\",status=\"4xx\"}"), 1);
    EXPECT_EQ(delta("kiv_tag_calls_total{tag=\"kivUnitTag\",result=\"MDNF\"}"), 1);
    EXPECT_EQ(delta("kiv_database_search_duration_seconds_count{store=\"embedded\"}"), 1);
    EXPECT_EQ(delta("kiv_login_throttled_total{action=\"refused\"}"), 1);
}

} // namespace
} // namespace kiv
