// The least that reads a table whole, checksums and all: the peer of its verification. It reads a
// table that is there and leaves it as LevelDB does after an opening.
#include <leveldb/c.h>
#include <stdio.h>

int main(int argc, char **argv) {
    char *error = NULL;
    size_t rows = 0, bytes = 0, length;
    leveldb_options_t *options = leveldb_options_create();
    leveldb_t *table = argc == 2 ? leveldb_open(options, argv[1], &error) : NULL;
    if (!table) return 1;
    leveldb_readoptions_t *reading = leveldb_readoptions_create();
    leveldb_readoptions_set_verify_checksums(reading, 1);
    leveldb_readoptions_set_fill_cache(reading, 0);
    leveldb_iterator_t *at = leveldb_create_iterator(table, reading);
    for (leveldb_iter_seek_to_first(at); leveldb_iter_valid(at); leveldb_iter_next(at), ++rows) {
        leveldb_iter_value(at, &length);
        bytes += length;
    }
    leveldb_iter_destroy(at);
    leveldb_readoptions_destroy(reading);
    leveldb_close(table);
    leveldb_options_destroy(options);
    printf("%zu rows, %zu bytes\n", rows, bytes);
    return 0;
}
