#include <lumo/mirrorsim/controlModes.hpp>

#include <cblas.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>

namespace lumo::mirrorsim {
namespace {

using RowMajor = Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

/// All the modes, computed once for every test of this file.
class ControlModesTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { s_sut = std::make_unique<ControlModes>(ComputeControlModes(Geometry())); }
    static void TearDownTestSuite() { s_sut.reset(); }

    static Eigen::MatrixXd Modes()
    {
        return Eigen::Map<const RowMajor>(s_sut->modes2pact.data(), NUM_PACT, s_sut->num_modes).cast<double>();
    }

    static std::unique_ptr<ControlModes> s_sut;
};

std::unique_ptr<ControlModes> ControlModesTest::s_sut;

/// left^T right. By BLAS, which knows the vector instructions of the machine that it runs on.
Eigen::MatrixXd TransposedProduct(const Eigen::MatrixXd& left, const Eigen::MatrixXd& right)
{
    Eigen::MatrixXd product(left.cols(), right.cols());
    cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, static_cast<int>(left.cols()), static_cast<int>(right.cols()),
                static_cast<int>(left.rows()), 1.0, left.data(), static_cast<int>(left.rows()), right.data(),
                static_cast<int>(right.rows()), 0.0, product.data(), static_cast<int>(product.rows()));
    return product;
}

TEST_F(ControlModesTest, AllModesAre2390InAscendingOrderOfEigenvalue)
{
    EXPECT_EQ(NUM_MODES, 2390);
    EXPECT_EQ(s_sut->num_modes, NUM_MODES);
    ASSERT_EQ(s_sut->eigenvalues.size(), 2390U);
    ASSERT_EQ(s_sut->p2edc.size(), 2390U * 4788U);
    ASSERT_EQ(s_sut->pact2modes.size(), 2390U * 2394U);
    ASSERT_EQ(s_sut->modes2pact.size(), 2394U * 2390U);
    EXPECT_TRUE(std::is_sorted(s_sut->eigenvalues.begin(), s_sut->eigenvalues.end()));
    EXPECT_GT(s_sut->eigenvalues.front(), 1e-6);
}

TEST_F(ControlModesTest, P2edcTimesSensorMatrixTimesModesIsTheIdentityToFloatAccuracy)
{
    const auto sensors = SensorMatrix(Geometry());
    // (A^T P2EDC^T)^T V, with A^T P2EDC^T sparse times dense.
    const Eigen::MatrixXd p2edc_transposed =
        Eigen::Map<const Eigen::MatrixXf>(s_sut->p2edc.data(), NUM_ES, NUM_MODES).cast<double>();
    const Eigen::MatrixXd left = sensors.transpose() * p2edc_transposed;
    const Eigen::MatrixXd product = TransposedProduct(left, Modes());
    // Rounding the elements to float leaves errors of up to 6e-8 |row of P2EDC| |A V|, 6e-8 x 520 x 4 for the mode
    // that the sensors see worst, if all of them added up; they do not.
    EXPECT_LT((product - Eigen::MatrixXd::Identity(NUM_MODES, NUM_MODES)).cwiseAbs().maxCoeff(), 1e-5);
}

TEST_F(ControlModesTest, ModesAreEigenvectorsOfTheNormalMatrix)
{
    const auto sensors = SensorMatrix(Geometry());
    const Eigen::MatrixXd modes = Modes();
    const Eigen::MatrixXd readings = sensors * modes;
    const Eigen::MatrixXd image = sensors.transpose() * readings;
    const Eigen::Map<const Eigen::VectorXd> eigenvalues(s_sut->eigenvalues.data(), NUM_MODES);
    EXPECT_LT((image - modes * eigenvalues.asDiagonal()).cwiseAbs().maxCoeff(), 1e-6);
}

TEST_F(ControlModesTest, ModesAreOrthonormalAndHoldNothingUnobservable)
{
    const Eigen::MatrixXd modes = Modes();
    const Eigen::MatrixXd product = TransposedProduct(modes, modes);
    EXPECT_LT((product - Eigen::MatrixXd::Identity(NUM_MODES, NUM_MODES)).cwiseAbs().maxCoeff(), 1e-6);
    EXPECT_LT(TransposedProduct(UnobservableDirections(Geometry()), modes).cwiseAbs().maxCoeff(), 1e-6);
}

TEST_F(ControlModesTest, Pact2ModesIsTheTransposeOfModes2Pact)
{
    const Eigen::Map<const RowMajor> pact2modes(s_sut->pact2modes.data(), NUM_MODES, NUM_PACT);
    const Eigen::Map<const RowMajor> modes2pact(s_sut->modes2pact.data(), NUM_PACT, NUM_MODES);
    EXPECT_EQ(pact2modes, modes2pact.transpose());
}

TEST_F(ControlModesTest, P2edcColumnsOfEmptySlotsAreZero)
{
    const Geometry geometry;
    const Eigen::Map<const RowMajor> p2edc(s_sut->p2edc.data(), NUM_MODES, NUM_ES);
    for (int slot = 0; slot < NUM_ES; ++slot) {
        ASSERT_EQ((p2edc.col(slot).array() == 0.0F).all(), !geometry.HasSensor(slot)) << "slot " << slot;
    }
}

TEST_F(ControlModesTest, FirstElementOfLargestMagnitudeIsPositiveInEveryMode)
{
    const Eigen::MatrixXd modes = Modes();
    for (int mode = 0; mode < NUM_MODES; ++mode) {
        const double largest = modes.col(mode).cwiseAbs().maxCoeff();
        const auto* first = std::find_if(modes.col(mode).data(), modes.col(mode).data() + NUM_PACT,
                                         [largest](double x) { return std::abs(x) > largest * (1.0 - 2e-6); });
        ASSERT_GT(*first, 0.0) << "mode " << mode;
    }
}

TEST_F(ControlModesTest, SelectedModesAreTheFirstOfAllModes)
{
    const ControlModes few = SelectModes(*s_sut, 7);
    ASSERT_EQ(few.num_modes, 7);
    ASSERT_EQ(few.eigenvalues.size(), 7U);
    ASSERT_EQ(few.p2edc.size(), 7U * NUM_ES);
    ASSERT_EQ(few.pact2modes.size(), 7U * NUM_PACT);
    ASSERT_EQ(few.modes2pact.size(), 7U * NUM_PACT);
    for (std::size_t mode = 0; mode < 7; ++mode) {
        ASSERT_EQ(few.eigenvalues[mode], s_sut->eigenvalues[mode]);
        for (std::size_t slot = 0; slot < NUM_ES; ++slot) {
            ASSERT_EQ(few.p2edc[mode * NUM_ES + slot], s_sut->p2edc[mode * NUM_ES + slot]);
        }
        for (std::size_t actuator = 0; actuator < NUM_PACT; ++actuator) {
            ASSERT_EQ(few.pact2modes[mode * NUM_PACT + actuator], s_sut->pact2modes[mode * NUM_PACT + actuator]);
            ASSERT_EQ(few.modes2pact[actuator * 7 + mode], s_sut->modes2pact[actuator * NUM_MODES + mode]);
        }
    }
}

TEST_F(ControlModesTest, ComputingAFewModesGivesTheFirstOfAllModesToFloatRounding)
{
    const ControlModes few = ComputeControlModes(Geometry(), 40);
    const ControlModes expected = SelectModes(*s_sut, 40);
    ASSERT_EQ(few.num_modes, 40);
    const auto difference = [](const std::vector<float>& a, const std::vector<float>& b) {
        const Eigen::Map<const Eigen::ArrayXf> left(a.data(), static_cast<Eigen::Index>(a.size()));
        const Eigen::Map<const Eigen::ArrayXf> right(b.data(), static_cast<Eigen::Index>(b.size()));
        return (left - right).abs().maxCoeff() / right.abs().maxCoeff();
    };
    EXPECT_LT(difference(few.modes2pact, expected.modes2pact), 1e-6F);
    EXPECT_LT(difference(few.pact2modes, expected.pact2modes), 1e-6F);
    EXPECT_LT(difference(few.p2edc, expected.p2edc), 1e-6F);
}

TEST_F(ControlModesTest, NumbersOfModesThatDoNotExistAreRefusedWithBothNumbers)
{
    EXPECT_THROW(ComputeControlModes(Geometry(), 0), std::invalid_argument);
    EXPECT_THROW(ComputeControlModes(Geometry(), -1), std::invalid_argument);
    EXPECT_THROW(SelectModes(*s_sut, 0), std::invalid_argument);
    try {
        ComputeControlModes(Geometry(), 2391);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "Expected a number of control modes of 1 to 2390 but received 2391.");
    }
    try {
        SelectModes(SelectModes(*s_sut, 5), 6);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "Expected a number of control modes of 1 to 5 but received 6.");
    }
}

TEST_F(ControlModesTest, SelectModesRefusesMatricesOfAnotherSizeThanTheirNumberOfModes)
{
    for (auto member : {&ControlModes::p2edc, &ControlModes::pact2modes, &ControlModes::modes2pact}) {
        ControlModes broken = SelectModes(*s_sut, 3);
        (broken.*member).pop_back();
        EXPECT_THROW(SelectModes(broken, 2), std::invalid_argument);
    }
    ControlModes broken = SelectModes(*s_sut, 3);
    broken.eigenvalues.pop_back();
    EXPECT_THROW(SelectModes(broken, 2), std::invalid_argument);
}

}  // namespace
}  // namespace lumo::mirrorsim
