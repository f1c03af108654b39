#pragma once
// Running a test's body as an unprivileged user. Root passes every file permission check, so a test
// of what happens when permission is denied would prove nothing as root (and CI runs as root).

namespace zt::test {

// For a test that needs permission checks to apply. Not root: returns false, and the test runs its
// body here. Root: runs this same test in a child process of the test binary that has become
// "nobody" (uid and gid 65534, no supplementary groups; TMPDIR=/tmp so that it can make scratch
// folders), waits for it, reports its failure as this test's and returns true: the caller then
// returns at once. Where the system refuses to switch user, the test is skipped with the reason.
//
//   TEST(Area, FailsWithoutPermission) {
//     if (zt::test::ranUnprivilegedInAChild()) return;
//     ...the body, running without root...
//   }
bool ranUnprivilegedInAChild();

}  // namespace zt::test
