#include "Metrics/EndpointMetrics.h"

#include <fmt/format.h>

#include <iterator>
#include <string_view>

namespace Host {
namespace {

/// Appends the families of a text. Names and labels are the host's and the models' own.
class MetricsText
{
public:
    void Begin(std::string_view name, std::string_view type, std::string_view help)
    {
        fmt::format_to(std::back_inserter(text),
                       "# HELP talvensor_{0} {2}\n# TYPE talvensor_{0} {1}\n", name, type, help);
    }

    template <typename Number>
    void Add(std::string_view name, Number value, std::string_view labels = {})
    {
        fmt::format_to(std::back_inserter(text), "talvensor_{}{}{}{} {}\n", name,
                       labels.empty() ? "" : "{", labels, labels.empty() ? "" : "}", value);
    }

    template <typename Number>
    void AddGauge(std::string_view name, Number value, std::string_view help)
    {
        Begin(name, "gauge", help);
        Add(name, value);
    }

    void AddCounter(std::string_view name, std::uint64_t value, std::string_view help)
    {
        Begin(name, "counter", help);
        Add(name, value);
    }

    [[nodiscard]] std::string Take() { return std::move(text); }

private:
    std::string text;
};

void AddCalls(MetricsText& text, const std::map<std::string, MethodMetrics>& methods)
{
    text.Begin("calls_total", "counter", "Calls that were answered, by method and status.");
    for (const auto& [method, metrics] : methods)
        for (const auto& [status, count] : metrics.calls)
            text.Add("calls_total", count,
                     fmt::format("method=\"{}\",result=\"{}\"", method, status));
}

void AddTimes(MetricsText& text, const std::string& method, const MethodMetrics& metrics)
{
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < metrics.times.size(); ++i) {
        sum += metrics.times.at(i);
        text.Add("call_seconds_bucket", sum,
                 fmt::format("method=\"{}\",le=\"{}\"", method, MethodMetrics::bounds.at(i)));
    }
    text.Add("call_seconds_bucket", metrics.count,
             fmt::format("method=\"{}\",le=\"+Inf\"", method));
    text.Add("call_seconds_sum", metrics.seconds, fmt::format("method=\"{}\"", method));
    text.Add("call_seconds_count", metrics.count, fmt::format("method=\"{}\"", method));
}

} // namespace

std::string FormatMetrics(const EndpointMetrics& endpoint, const HostMetrics& host)
{
    MetricsText text;
    text.AddGauge("sessions", endpoint.sessions, "Active sessions.");
    text.AddGauge("sessions_ending", endpoint.endingSessions,
                  "Sessions that have ended and whose work has not.");
    text.AddGauge("connections", endpoint.connections, "Open connections.");
    text.AddCounter("connections_total", endpoint.connectionsSoFar, "Connections accepted.");
    text.AddCounter("received_bytes_total", endpoint.received, "Bytes received from clients.");
    text.AddCounter("sent_bytes_total", endpoint.sent, "Bytes given to connections to send.");
    text.AddGauge("calls_in_flight", endpoint.callsInFlight,
                  "Calls that were taken and not answered yet.");
    text.AddGauge("calls_in_flight_bytes", endpoint.inputsInFlight,
                  "Memory of the inputs of the calls in flight.");
    text.AddGauge("events_waiting", endpoint.waitingEvents,
                  "Events that wait until their hearers have taken earlier ones.");
    text.AddGauge("events_waiting_bytes", endpoint.waitingEventBytes,
                  "Bytes of the events that wait.");
    text.AddGauge("memory_brake", endpoint.isMemoryBrakeOn ? 1 : 0,
                  "1 while connections that send most are not read since memory is short.");
    text.AddGauge("memory_bytes", host.memory, "Resident memory of the host.");
    text.AddGauge("memory_limit_bytes", host.memoryLimit,
                  "The memory above which connections that send most are not read.");
    text.AddCounter("logins_refused_total", host.refusedLogins, "Logins that were refused.");
    text.AddCounter("audit_lines_lost_total", host.lostAuditLines,
                    "Audit lines that could not be written.");
    AddCalls(text, endpoint.methods);
    text.Begin("call_seconds", "histogram",
               "Time from taking a call to answering it, waiting included.");
    for (const auto& [method, metrics] : endpoint.methods)
        AddTimes(text, method, metrics);
    return text.Take();
}

} // namespace Host
