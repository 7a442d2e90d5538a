// A loadable library that exports something, but not the exporter entry point.
#ifdef _WIN32
#define EXPORTED extern "C" __declspec(dllexport)
#else
#define EXPORTED extern "C" __attribute__((visibility("default")))
#endif

EXPORTED int NotTheEntryPoint(int x) { return x + 1; }
