#include "gateway/web/metrics.h"

#include <gmock/gmock.h>

namespace web {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

Snapshot of(const char* status) {
  Snapshot snapshot;
  snapshot.answer = Json::parse(status);
  return snapshot;
}

TEST(MetricsTest, ADaemonThatDoesNotAnswerIsAllThatIsSaidOfIt) {
  const std::string text = metrics_text(Snapshot(), MetricsForm::open_metrics);
  EXPECT_THAT(text, HasSubstr("\nachost_up 0\n"));
  EXPECT_THAT(text, Not(HasSubstr("reader")));
  EXPECT_THAT(text, EndsWith("# EOF\n"));
}

TEST(MetricsTest, ACounterHasItsEndingInTheFamilyOnlyInTheOlderForm) {
  const Snapshot snapshot = of(R"({"bus": {"delivered": 7}})");
  EXPECT_THAT(metrics_text(snapshot, MetricsForm::open_metrics),
              HasSubstr("# TYPE achost_bus_delivered counter\nachost_bus_delivered_total 7\n"));
  const std::string text = metrics_text(snapshot, MetricsForm::text);
  EXPECT_THAT(text, HasSubstr("# TYPE achost_bus_delivered_total counter\nachost_bus_delivered_total 7\n"));
  EXPECT_THAT(text, Not(HasSubstr("EOF")));
}

TEST(MetricsTest, WhatIsNotKnownIsLeftOut) {
  const std::string text =
      metrics_text(of(R"({"reader": {"last_answer_s": null}, "door": {"contact": null}})"), MetricsForm::text);
  EXPECT_THAT(text, Not(HasSubstr("last_answer")));
  EXPECT_THAT(text, Not(HasSubstr("contact")));
}

TEST(MetricsTest, OfAStateOneWordHolds) {
  const std::string text = metrics_text(of(R"({"reader": {"state": "silent"}})"), MetricsForm::text);
  EXPECT_THAT(text, HasSubstr("achost_reader_state{state=\"silent\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("achost_reader_state{state=\"answering\"} 0\n"));
}

TEST(MetricsTest, QueuesOfOneNameAreOneAndNamesAreEscaped) {
  const std::string text = metrics_text(
      of(R"({"queues": [{"name": "a\"b", "waiting": 2}, {"name": "a\"b", "waiting": 3}]})"), MetricsForm::text);
  EXPECT_THAT(text, HasSubstr("achost_queue_waiting{queue=\"a\\\"b\"} 5\n"));
}

TEST(MetricsTest, AnAlarmIsThereWhileItStands) {
  EXPECT_THAT(metrics_text(of(R"({"alarms": [{"name": "disk", "text": "full"}]})"), MetricsForm::text),
              HasSubstr("achost_alarm{alarm=\"disk\"} 1\n"));
  EXPECT_THAT(metrics_text(of(R"({"alarms": []})"), MetricsForm::text), Not(HasSubstr("achost_alarm")));
}

TEST(MetricsTest, WhatIsCountedByOutcomeHasItAsALabel) {
  EXPECT_THAT(metrics_text(of(R"({"polls": {"tags": 3, "silence": 1}})"), MetricsForm::text),
              HasSubstr("achost_polls_total{outcome=\"silence\"} 1\nachost_polls_total{outcome=\"tags\"} 3\n"));
}

TEST(MetricsTest, AStagesTimesAreAHistogram) {
  EXPECT_THAT(metrics_text(of(R"({"stages": {"relay": {"count": 2, "sum_s": 0.5,
                                  "buckets": [{"count": 1, "le_s": 0.25}, {"count": 2}]}}})"),
                           MetricsForm::open_metrics),
              HasSubstr("# TYPE achost_stage_seconds histogram\n"
                        "achost_stage_seconds_bucket{stage=\"relay\",le=\"0.25\"} 1\n"
                        "achost_stage_seconds_bucket{stage=\"relay\",le=\"+Inf\"} 2\n"
                        "achost_stage_seconds_sum{stage=\"relay\"} 0.5\n"
                        "achost_stage_seconds_count{stage=\"relay\"} 2\n"));
}

TEST(MetricsTest, WhoAsksForOpenMetricsGetsThem) {
  EXPECT_EQ(metrics_form("application/openmetrics-text;version=1.0.0,application/openmetrics-text;version=0.0.1;q=0.75,"
                         "text/plain;version=0.0.4;q=0.5,*/*;q=0.1"),
            MetricsForm::open_metrics);
  EXPECT_EQ(metrics_form("*/*"), MetricsForm::text);
}

}  // namespace
}  // namespace web
