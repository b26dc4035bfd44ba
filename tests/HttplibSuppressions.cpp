// The loopback HTTP servers of the tests run on cpp-httplib, which comes as a prebuilt shared library without
// ThreadSanitizer instrumentation: TSan cannot see the synchronisation inside it and reports the library's own
// accesses (its worker threads' buffers) as races. Reports with a frame in that library are left out; its calls
// into the threading interceptors still count, so the ordering they give our code stays seen, and everything of
// ours stays checked.
extern "C" const char* __tsan_default_suppressions()
{
    return "race:libcpp-httplib.so\n";
}
