#include "platform/SharedMemory.h"
#include "platform/Overlapped.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

TEST(SharedMemory, IsSeenByAnotherProcessAndKeepsItsSize)
{
    platform::SharedMemory region;
    ASSERT_TRUE(region.create(10000));
    EXPECT_EQ(region.size(), 10000U);
    EXPECT_EQ(region.base()[9999], 0);
    EXPECT_EQ(fcntl(region.descriptor(), F_GETFD), FD_CLOEXEC);
    EXPECT_NE(ftruncate(region.descriptor(), 4096), 0);
    EXPECT_NE(ftruncate(region.descriptor(), 20000), 0);
    EXPECT_NE(fcntl(region.descriptor(), F_ADD_SEALS, F_SEAL_WRITE), 0);

    const int passedOn = dup(region.descriptor());
    const pid_t child = fork();
    if (child == 0) {
        platform::SharedMemory again;
        if (again.attach(passedOn) && again.size() == 10000)
            again.base()[9999] = 'x';
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(region.base()[9999], 'x');
    close(passedOn);
}

TEST(SharedMemory, RefusesWhatCouldBeCutUnderIt)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[1]);
    const int unsealed = memfd_create("unsealed", MFD_ALLOW_SEALING);
    ASSERT_EQ(ftruncate(unsealed, 4096), 0);
    const int growing = memfd_create("growing", MFD_ALLOW_SEALING);
    ASSERT_EQ(ftruncate(growing, 4096) + fcntl(growing, F_ADD_SEALS, F_SEAL_GROW), 0);
    const int empty = memfd_create("empty", MFD_ALLOW_SEALING);
    ASSERT_EQ(fcntl(empty, F_ADD_SEALS, F_SEAL_SHRINK), 0);
    for (const int descriptor : {ends[0], unsealed, growing, empty}) {
        {
            platform::SharedMemory region;
            EXPECT_FALSE(region.attach(descriptor));
            EXPECT_EQ(platform::getLastError(), platform::ERROR_INVALID_PARAMETER);
            EXPECT_EQ(region.base(), nullptr);
        }
        EXPECT_EQ(fcntl(descriptor, F_GETFD), -1) << "still open";
    }
    platform::SharedMemory none;
    EXPECT_FALSE(none.create(0));
    platform::SharedMemory tooLarge;
    EXPECT_FALSE(tooLarge.create(~std::uint64_t{0}));
}

}  // namespace
