// ThreadSanitizer reports that the test executables leave out, each for a reason that holds for the whole report:
// - The loopback HTTP servers of the tests run on cpp-httplib, which comes as a prebuilt shared library without
//   ThreadSanitizer instrumentation: TSan cannot see the synchronisation inside it and reports the library's own
//   accesses (its worker threads' buffers) as races. Reports with a frame in that library are left out; its calls
//   into the threading interceptors still count, so the ordering they give our code stays seen, and everything of
//   ours stays checked.
// - A log capture's lock is a leaf: the capture takes it only to append a line and never logs or takes another lock
//   while holding it, so no lock order through it can deadlock. Captures live on test stacks, and std::mutex tells
//   TSan nothing when it goes, so a later lock at the same address (a preference store's, say) is taken for the
//   capture's and paired with the log's lock into an inversion that cannot happen.
extern "C" const char* __tsan_default_suppressions()
{
    return "race:libcpp-httplib.so\n"
           "deadlock:tests/support/LogCapture.cpp\n";
}
