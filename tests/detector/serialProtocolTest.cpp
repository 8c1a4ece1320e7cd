#include "detector/baseDetector/serialProtocol.h"

#include <gtest/gtest.h>

TEST(SerialProtocol, CommandsHaveFixedWidths) {
    EXPECT_EQ(serial::formatRead(1, 418), "R1418");
    EXPECT_EQ(serial::formatRead(9, 999), "R9999");
    EXPECT_EQ(serial::formatRead(1, 7), "R1007");
    EXPECT_EQ(serial::formatWrite(0, 3, 4), "W000300004");
    EXPECT_EQ(serial::formatWrite(9, 999, 65535), "W999965535");
}

TEST(SerialProtocol, ReadRepliesAreTakenOnlyInTheirOneForm) {
    const struct {
        std::string reply;
        std::optional<int> value;
    } cases[] = {{"S00000\r", 0},  {"S65535\r", 65535}, {"S99999\r", 99999}, {"S123xy\r", 123}, {"S-0001\r", -1},
                 {"S  012\r", 12}, {"S00042X", 42},  // the last character is not looked at
                 {"", {}},         {"\r", {}},          {"S0000\r", {}},     {"S000000\r", {}}, {"X00000\r", {}},
                 {"S123x\r", {}},  {"Sabcde\r", {}},    {"S-----\r", {}},    {"S     \r", {}}};
    for (const auto& test : cases) EXPECT_EQ(serial::parseReadReply(test.reply), test.value) << test.reply;
}

TEST(SerialProtocol, OnlyFormattedWritesOfFlashHeldRegistersNeedThePause) {
    for (const int reg : {20, 21, 22, 23, 24, 25, 26, 116, 125, 200, 201, 202, 203, 418})
        EXPECT_TRUE(IsFlashRegisterWrite(serial::formatWrite(reg % 10, reg, reg))) << reg;
    for (const char* command :
         {"W001900000", "W002700000", "W011500000", "W012600000", "W019900000", "W020400000", "W041700000",
          "R002000000", "W0020000000", "W00200000", "W00200000x", "WFD1234567", "", "W"})
        EXPECT_FALSE(IsFlashRegisterWrite(command)) << command;
}

TEST(SerialProtocol, CopiedTextIsCutToItsRoomAndEnded) {
    char room[4] = {'x', 'x', 'x', 'x'};
    serial::copyText(room, sizeof(room), "abcdef");
    EXPECT_STREQ(room, "abc");
    serial::copyText(room, sizeof(room), "");
    EXPECT_STREQ(room, "");
    room[0] = 'k';
    serial::copyText(room, 0, "abc");
    EXPECT_EQ(room[0], 'k');
}
