#include "error.hpp"
#include "htmlReport.hpp"
#include "makeModulation.hpp"
#include "support/recording.hpp"
#include "support/runInProcess.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <limits>
#include <sstream>

namespace lumo::ravelctl {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

/// What the page's script would read.
json DataOf(const std::string& page)
{
    const std::string begin = "id=\"report-data\">";
    const std::size_t from = page.find(begin) + begin.size();
    return json::parse(page.substr(from, page.find("</script>", from) - from));
}

json DataOf(const ReportData& data)
{
    return json::parse(ReportJson(data));
}

std::int64_t CountAll(const json& counts)
{
    std::int64_t sum = 0;
    for (const json& count : counts) {
        sum += count.get<std::int64_t>();
    }
    return sum;
}

/// The spectra and the computed rejection are there all the same.
void ExpectNoMeasuredRejection(const json& data, const std::string& why)
{
    const json& spectra = data.at("spectra");
    EXPECT_TRUE(spectra.at("rejection_measured").empty());
    EXPECT_EQ(spectra.at("rejection_computed").size(), spectra.at("frequency_hz").size());
    EXPECT_EQ(spectra.at("after").size(), spectra.at("frequency_hz").size());
    EXPECT_THAT(data.at("left_out").get<std::vector<std::string>>(),
                testing::Contains(HasSubstr("The rejection as measured: " + why)));
}

TEST(HtmlReportTest, NoTextCanEndTheElementThatItStandsIn)
{
    ReportData data;
    const std::string text = "a</script><script>alert(1)</script><!-- \"quoted\" \\ & \n \xE2\x80\xA8 nm\xC2\xB2";
    data.title = text;
    data.problems = {text};
    const std::string sut = ReportJson(data);
    EXPECT_THAT(sut, Not(HasSubstr("<")));
    EXPECT_EQ(json::parse(sut).at("title"), text);
    EXPECT_EQ(json::parse(sut).at("problems").at(0), text);
}

TEST(HtmlReportTest, ATextThatIsNotUtf8IsShownAllTheSame)
{
    ReportData data;
    data.title = "night\xFF";
    EXPECT_EQ(DataOf(data).at("title"), "night\xEF\xBF\xBD");
}

TEST(HtmlReportTest, SectionsWithoutDataAreAbsent)
{
    ReportData data;
    data.cycle_times = CycleTimes{CountDurations(std::vector<float>{100.0F, 200.0F}, {}), {}, 2000.0, true, 0, {}};
    const json sut = DataOf(data);
    EXPECT_TRUE(sut.contains("cycle_times"));
    for (const char* section : {"mirror", "residual", "surface", "edge_sensors", "spectra", "mode_rms_nm",
                                "execution_times", "start_latencies", "speeds"}) {
        EXPECT_FALSE(sut.contains(section)) << section;
    }
    EXPECT_TRUE(sut.at("judged_s").is_null());
}

TEST(HtmlReportTest, PistonsAreWholeTenthsOfANanometre)
{
    ReportData data;
    data.mirror = MirrorFrames{{0.5}, {2.0}, {{-1.26, 1000.0, std::numeric_limits<double>::quiet_NaN()}}, 0};
    const json sut = DataOf(data).at("mirror");
    EXPECT_EQ(sut.at("piston_tenths_nm"), json::parse("[[-13, 10000, null]]"));
    EXPECT_EQ(sut.at("segments").size(), 798U);
    EXPECT_EQ(sut.at("before"), 0);
}

TEST(HtmlReportTest, ANumberThatIsNotFiniteIsNull)
{
    ReportData data;
    data.residual = ThinnedSeries{0.0, 1.0, {1.23456, std::numeric_limits<double>::infinity()}, {}, {}};
    EXPECT_EQ(DataOf(data).at("residual").at("rms"), json::parse("[1.235, null]"));
}

TEST(HtmlReportTest, ThePageOfARunShowsTheFiguresOfItsReport)
{
    if (ReportTemplate().empty()) {
        GTEST_SKIP() << "built without npm";
    }
    const test::TestFolder folder;
    RunOptions options = test::ShortRun(folder, "run");
    options.workers = 2;
    options.open_loop_s = 0.2;
    const test::FinishedRun run = test::RunInProcess(options);
    const std::string page = test::ReadBytes(folder / "run" / "report.html");
    EXPECT_THAT(page, Not(HasSubstr("@REPORT_DATA@")));
    EXPECT_THAT(page, HasSubstr("Apache License"));
    const json sut = DataOf(page);
    EXPECT_EQ(sut.at("verdict"), "the loop held");
    EXPECT_NEAR(sut.at("figures").at(0).at("before_nm"), run.report.controlled_rms_nm.before.value(), 1.0e-9);
    EXPECT_EQ(sut.at("residual").at("rms").size(), 300U);
    EXPECT_EQ(sut.at("edge_sensors").at("rms").size(), 300U);
    EXPECT_EQ(sut.at("mode_rms_nm").at("after").size(), 20U);
    EXPECT_EQ(sut.at("marks").at(0).at("time_s"), 0.2);
    EXPECT_TRUE(sut.contains("spectra"));
    EXPECT_EQ(CountAll(sut.at("cycle_times").at("counts")), 300);
    ASSERT_EQ(sut.at("execution_times").size(), 1U);
    EXPECT_EQ(CountAll(sut.at("execution_times").at(0).at("counts")), 300);
    EXPECT_EQ(sut.at("execution_times").at(0).at("max_us"), run.report.execution_time_us->max);
    const json& times = sut.at("tables").at(0).at("rows");
    EXPECT_EQ(times.at(0).at("values").at(1), run.report.cycle_time_us->p50);
    EXPECT_EQ(times.at(1).at("values").at(4), run.report.execution_time_us->p9999);
    EXPECT_TRUE(sut.at("left_out").empty()) << sut.at("left_out");
    EXPECT_THAT(sut.at("parameters").dump(), HasSubstr(fmt::format("\"{}\"", fmt::join(run.report.files, ", "))))
        << "the page and the summary, which is written after it, are among the files";
}

TEST(HtmlReportTest, InjectedReferencesAreMarkedWhereTheyBeginAndEnd)
{
    if (ReportTemplate().empty()) {
        GTEST_SKIP() << "built without npm";
    }
    const test::TestFolder folder;
    std::ostringstream ignored;
    ModulationOptions step;
    step.shape = ModulationShape::Step;
    step.output = folder / "step.fits";
    step.modes = 20;
    step.duration_s = 0.1;
    MakeModulationFile(step, ignored);
    RunOptions options = test::ShortRun(folder, "run");
    options.open_loop_s = 0.2;
    options.inject.file = step.output;
    const test::FinishedRun run = test::RunInProcess(options);
    const LoopPlan& plan = run.report.plan;
    const std::int64_t begin = plan.FirstInjectedCycle();
    const json data = DataOf(test::ReadBytes(folder / "run" / "report.html"));
    const json& marks = data.at("marks");
    ASSERT_EQ(marks.size(), 3U);
    EXPECT_EQ(marks.at(0).at("what"), "loop closes");
    EXPECT_EQ(marks.at(1).at("what"), "injected references begin: " + step.output.string());
    EXPECT_NEAR(marks.at(1).at("time_s"), plan.TimeOf(begin), 1.0e-9);
    EXPECT_EQ(marks.at(2).at("what"), "injected references end");
    EXPECT_NEAR(marks.at(2).at("time_s"), plan.TimeOf(begin + 50), 1.0e-9);

    // The moment is where the recorded references leave 0 for the step.
    const test::Recording references = test::LoadRecording(folder / "run" / "modes_ref.fits");
    EXPECT_NE(references.At(static_cast<int>(begin), 0), 0.0F);
    EXPECT_EQ(references.At(static_cast<int>(begin) + 50, 0), 0.0F);

    ExpectNoMeasuredRejection(data, "the modes follow the injected references");
}

TEST(HtmlReportTest, FramesThatArePlayedBackMeasureNoRejection)
{
    if (ReportTemplate().empty()) {
        GTEST_SKIP() << "built without npm";
    }
    const test::TestFolder folder;
    RunOptions options = test::ShortRun(folder, "recorded");
    options.open_loop_s = 0.2;
    options.record.es = true;
    test::RunInProcess(options);
    EXPECT_FALSE(
        DataOf(test::ReadBytes(folder / "recorded" / "report.html")).at("spectra").at("rejection_measured").empty());
    options.output = folder / "played";
    options.play.es = folder / "recorded" / "es.fits";
    test::RunInProcess(options);
    ExpectNoMeasuredRejection(DataOf(test::ReadBytes(folder / "played" / "report.html")),
                              "recorded frames were played back");
}

TEST(HtmlReportTest, WhatWasNotRecordedIsLeftOutAndSaid)
{
    if (ReportTemplate().empty()) {
        GTEST_SKIP() << "built without npm";
    }
    const test::TestFolder folder;
    RunOptions options = test::ShortRun(folder, "run");
    options.record.modes = false;
    options.record.es = true;
    const test::FinishedRun run = test::RunInProcess(options);
    EXPECT_EQ(run.status, EXIT_OK) << run.text;
    const json sut = DataOf(test::ReadBytes(folder / "run" / "report.html"));
    EXPECT_FALSE(sut.contains("spectra"));
    EXPECT_FALSE(sut.contains("mode_rms_nm"));
    ASSERT_EQ(sut.at("left_out").size(), 1U);
    EXPECT_THAT(sut.at("left_out").at(0), HasSubstr("the modes were not recorded"));
}

TEST(HtmlReportTest, APageThatCannotBeWrittenIsSaidInOneLine)
{
    const test::TestFolder folder;
    const std::filesystem::path file = folder / "missing" / "report.html";
    const std::string line = test::ThrownLine<RunError>([&] { WriteHtmlReport(ReportData(), file); });
    EXPECT_THAT(line, HasSubstr("cannot write " + file.string()));
}

}  // namespace
}  // namespace lumo::ravelctl
