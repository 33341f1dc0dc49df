// Tests of the journal lines.
#include "agentsim/sim_journal.h"

#include "agentconf/json_conv.h"

#include <gtest/gtest.h>

#include <string>

namespace {

SimJournalEntry Entry() {
    SimJournalEntry e;
    e.time = OV_LocalTime{2026, 11, 22, 23, 10, 5, 123};
    e.module = 10;
    e.function = 1;
    e.command = "set_ratelimit";
    return e;
}

TEST(SimJournal, LinesHaveEveryFieldInOrder) {
    static const uint8_t payload[] = {0x05, 0x00, 0xab, 0xff};
    OV_JsonPtr record(json_tokener_parse(R"({"RateLimitId":5,"Name":"a/b"})"));
    SimJournalEntry answered = Entry();
    answered.status = -2;
    answered.length = sizeof payload;
    answered.payload = payload;
    answered.record = record.get();
    EXPECT_EQ(SimJournalLine(answered),
              R"({"time":"2026-11-22T23:10:05.123","module":10,"function":1,)"
              R"("command":"set_ratelimit","status":-2,"length":4,"payload":"0500abff",)"
              R"("record":{"RateLimitId":5,"Name":"a/b"}})"
              "\n");
    EXPECT_EQ(json_object_put(record.release()), 1) << "the line keeps the record";
}

TEST(SimJournal, LinesAreUtf8WhateverTheRecordsTextsHold) {
    // A name field with bytes that are not UTF-8, around well-formed ones.
    OV_JsonPtr record(json_object_new_object());
    const char raw[] =
        "a\xff\xc2\x80\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\xc3(\xed\xa0\x80\xc0\xaf\xf4\x90";
    json_object_object_add(record.get(), "name", json_object_new_string(raw));
    SimJournalEntry e = Entry();
    e.record = record.get();
    std::string line = SimJournalLine(e);
    // Well-formed sequences pass; every other byte reads as U+0080..U+00FF.
    const std::string expected =
        "\"record\":{\"name\":\"a\\u00ff\xc2\x80\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"
        "\\u00c3(\\u00ed\\u00a0\\u0080\\u00c0\\u00af\\u00f4\\u0090\"}";
    EXPECT_NE(line.find(expected), std::string::npos) << line;
}

} // namespace
