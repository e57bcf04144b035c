// The options of the program's allocator, jemalloc, which reads them from this
// symbol when it starts (the MALLOC_CONF environment variable still adds to
// them). Its memory is asked for in transparent huge pages: loading a large
// graph touches hundreds of megabytes of small strings and nodes, and in 4 KiB
// pages the page faults and the translation misses of reaching them cost more
// than the work. Compiled only where the program links jemalloc.
extern "C" {
extern char const* malloc_conf;
char const* malloc_conf = "thp:always,metadata_thp:auto";
}
