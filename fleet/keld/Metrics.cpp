// SPDX-License-Identifier: MIT
#include "keld/Metrics.h"

#include <prometheus/client_metric.h>
#include <prometheus/collectable.h>
#include <prometheus/exposer.h>
#include <prometheus/metric_family.h>
#include <prometheus/metric_type.h>

#include <stdexcept>
#include <utility>
#include <vector>

namespace kel::fleet {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

class Collector final : public prometheus::Collectable {
 public:
  Collector(std::string site, std::string device, const Counters& counters, const Client& client)
      : mSite(std::move(site)), mDevice(std::move(device)), mCounters(counters), mClient(client) {}

  std::vector<MetricFamily> Collect() const override {
    const Statistics link = mClient.statistics();
    const EndpointCounters::Snapshot tasks = mCounters.tasks.snapshot();
    const EndpointCounters::Snapshot streams = mCounters.streams.snapshot();
    std::vector<MetricFamily> families;
    families.push_back(counter("kel_tasks_total", "Tasks that were asked for.", tasks.requests));
    families.push_back(counter("kel_task_seconds_total", "Time that tasks took, of all of them together.",
                               std::chrono::duration<double>(tasks.time).count()));
    families.push_back(failures(tasks));
    families.push_back(counter("kel_streams_total", "Streams that were asked for.", streams.requests));
    families.push_back(counter("kel_stream_messages_total", "Messages of streams sent on.", mCounters.streamMessages));
    families.push_back(counter("kel_broadcasts_total", "Broadcasts sent on.", mCounters.broadcasts));
    families.push_back(counter("kel_unpublished_total", "Messages that no server took.", mCounters.unpublished));
    families.push_back(counter("kel_link_losses_total", "Times that the device's link was lost.", link.losses));
    families.push_back(
        counter("kel_dropped_messages_total", "Stream messages for which there was no room.", link.droppedMessages));
    families.push_back(
        gauge("kel_connected", "1 while the device's link is up.", mClient.state() == State::connected ? 1 : 0));
    families.push_back(gauge("kel_in_flight", "Calls under way.", link.inFlight));
    families.push_back(gauge("kel_queued", "Calls that wait to be sent.", link.queued));
    families.push_back(gauge("kel_open_streams", "Streams that are open.", mCounters.openStreams));
    return families;
  }

 private:
  ClientMetric labelled() const {
    ClientMetric metric;
    metric.label = {{"site", mSite}, {"device", mDevice}};
    return metric;
  }

  template <class Number>
  MetricFamily counter(const char* name, const char* help, const Number& value) const {
    ClientMetric metric = labelled();
    metric.counter.value = static_cast<double>(value);
    return {name, help, MetricType::Counter, {metric}};
  }

  template <class Number>
  MetricFamily gauge(const char* name, const char* help, const Number& value) const {
    ClientMetric metric = labelled();
    metric.gauge.value = static_cast<double>(value);
    return {name, help, MetricType::Gauge, {metric}};
  }

  MetricFamily failures(const EndpointCounters::Snapshot& tasks) const {
    MetricFamily family{"kel_task_errors_total", "Tasks that failed, by their cause.", MetricType::Counter, {}};
    for (std::size_t cause = 1; cause < tasks.byCause.size(); ++cause) {
      if (tasks.byCause[cause] == 0) continue;
      ClientMetric metric = labelled();
      metric.label.push_back({"cause", word(static_cast<Cause>(cause))});
      metric.counter.value = static_cast<double>(tasks.byCause[cause]);
      family.metric.push_back(std::move(metric));
    }
    return family;
  }

  const std::string mSite;
  const std::string mDevice;
  const Counters& mCounters;
  const Client& mClient;
};

}  // namespace

struct Metrics::Inside {
  prometheus::Exposer exposer;
  std::shared_ptr<Collector> collector;
};

Metrics::Metrics(const std::string& address, const std::string& site, const std::string& device,
                 const Counters& counters, const Client& client)
    : mInside(
          new Inside{prometheus::Exposer(address, 1), std::make_shared<Collector>(site, device, counters, client)}) {
  mInside->exposer.RegisterCollectable(mInside->collector);
}

Metrics::~Metrics() = default;

}  // namespace kel::fleet
