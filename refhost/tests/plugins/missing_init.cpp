// A shared object without the entry "init".
extern "C" int run() { return 0; }
