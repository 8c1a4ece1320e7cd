#include "EbusRig.h"

namespace {

class EbusLogic : public EbusRig {
protected:
    void SetUp() override {
        user.connect(address);
        user.wireControlBit();
    }

    void setEnum(const std::string& name, const char* text) {
        const PvResult result = user.features().SetEnumValue(name.c_str(), text);
        ASSERT_TRUE(result.IsOK()) << result.GetDescription().GetAscii();
    }

    void setBit(const char* name, bool level) { ASSERT_TRUE(user.features().SetBooleanValue(name, level).IsOK()); }

    std::uint64_t edges() const { return detector->ledger().edges; }

    /// Timer 1 runs with a period of (factor + 1) times 60 microseconds, and is let through by the first control bit.
    void runTimer(std::int64_t factor) {
        setEnum("PLC_I7", "Timer1Out");
        setEnum("PLC_Q4_Operator0", "And");
        setEnum("PLC_Q4_Variable1", "PLC_I7");
        setEnum("TimerTriggerSource", "Continuous");
        user.features().SetIntegerValue("TimerGranularityFactor", factor);
        user.features().SetIntegerValue("TimerDurationRaw", 1000);
        user.features().SetIntegerValue("TimerDelayRaw", 1000);
    }

    static constexpr std::int64_t factor = 32;
    static constexpr platform::Time period = std::chrono::microseconds((factor + 1) * 60);
};

TEST_F(EbusLogic, EveryOperatorGivesItsTruthTable) {
    setEnum("PLC_I1", "PLC_ctrl1");
    setEnum("PLC_Q4_Variable1", "PLC_I1");
    // Levels of the output for the bit pairs 00, 01, 11, 10, in an order in which one bit changes at a time.
    for (const auto& [name, levels] : std::initializer_list<std::pair<const char*, std::string>>{
             {"Or", "0111"}, {"And", "0010"}, {"Xor", "0101"}, {"Nor", "1000"}, {"Nand", "1101"}, {"Xnor", "1010"}}) {
        setEnum("PLC_Q4_Operator0", name);
        for (std::size_t step = 1; step <= levels.size(); ++step) {
            const bool rises = levels[step - 1] == '0' && levels[step % levels.size()] == '1';
            const std::uint64_t before = edges();
            setBit(step % 2 == 1 ? "PLC_ctrl1" : "PLC_ctrl0", step == 1 || step == 2);
            EXPECT_EQ(edges() - before, rises ? 1U : 0U) << name << " step " << step;
        }
    }
}

TEST_F(EbusLogic, OperatorsBindFromLeftToRight) {
    setEnum("PLC_Q4_Variable1", "One");
    setEnum("PLC_Q4_Operator1", "And");
    setEnum("PLC_Q4_Variable2", "PLC_ctrl2");
    const std::uint64_t before = edges();
    setBit("PLC_ctrl0", true);
    EXPECT_EQ(edges(), before) << "(1 or 1) and 0";
    setEnum("PLC_Q4_Operator2", "Or");
    setEnum("PLC_Q4_Variable3", "One");
    EXPECT_EQ(edges(), before + 1) << "((1 or 1) and 0) or 1";
}

TEST_F(EbusLogic, TimerPulsesAtTheFrequencyItReportsAndKeepsNothingBusyUnheard) {
    runTimer(factor);
    double frequencyHz = 0;
    ASSERT_TRUE(user.features().GetFloatValue("TimerFrequency", frequencyHz).IsOK());
    EXPECT_NEAR(frequencyHz, 1e9 / static_cast<double>(period.count()), 1e-6);
    user.run(1);
    PvBuffer* buffer = nullptr;
    PvResult frame;
    EXPECT_THROW(user.pipeline.RetrieveNextBuffer(&buffer, 0xFFFFFFFF, &frame), platform::VirtualClockHang);
    setBit("PLC_ctrl0", true);
    EXPECT_TRUE(user.pipeline.RetrieveNextBuffer(&buffer, 0xFFFFFFFF, &frame).IsOK());
    for (const bool gate : {false, true}) {
        setBit("PLC_ctrl0", gate);
        const std::uint64_t before = edges();
        clock.advance(100 * period);
        EXPECT_EQ(edges() - before, gate ? 100U : 0U);
    }
    setEnum("TimerTriggerSource", "Off");
    const std::uint64_t before = edges();
    clock.advance(10 * period);
    EXPECT_EQ(edges(), before);
}

}  // namespace
