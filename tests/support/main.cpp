/* main.cpp — runs the GoogleTest suites after LUMInitialize, as every
 * program using LumBase starts.
 * Part of LumBase; MIT licence. */
#include <LumBase.h>

#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (!LUMInitialize(argc, argv)) return 2;
    return RUN_ALL_TESTS();
}
