// Shared by the kit's tests: a Qt application on the offscreen platform
// (CTest sets QT_QPA_PLATFORM) and a clean slate of test answers.
#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QTest>

#include <cstdlib>

#include "kora/ui/application.h"
#include "kora/ui/testhooks.h"

class UiTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        Kora::Ui::installHostServices();
        ASSERT_TRUE(Kora::Ui::ensureApplication());
        Kora::Ui::Test::clear();
        unsetenv("KORA_DPI_SCALE");
    }
    void TearDown() override
    {
        Kora::Ui::Test::clear();
        unsetenv("KORA_DPI_SCALE");
    }
};
