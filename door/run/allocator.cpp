// What jemalloc asks a program for: one arena is enough for a door, and keeps what is in memory small.
extern "C" {
extern const char* const malloc_conf;
const char* const malloc_conf = "narenas:1";
}
