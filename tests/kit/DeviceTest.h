#ifndef TESTS_KIT_DEVICETEST_H
#define TESTS_KIT_DEVICETEST_H

#include "tests/kit/Clock.h"
#include "tests/kit/LogCapture.h"
#include "tests/kit/System.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Kit
{

/// A test with virtual time and a captured log: what most tests of a device want.
class DeviceTest : public testing::Test
{
protected:
    Clock clock;
    LogCapture log;
};

}

#endif
