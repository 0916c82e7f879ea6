/*
 * bench_common.h -- what the bench programs share: a monotonic clock, and
 * opening the workbook their command line names ("FILE [--password P]").
 */
#ifndef BENCH_COMMON_H
#define BENCH_COMMON_H

#include <stdio.h>
#include <string.h>
#include <time.h>

#include "foundation/zuv_uni_string.h"
#include "module/linux_pool.h"
#include "workbook/kel_xls_file.h"

/* Seconds on a monotonic clock. */
static inline double bench_now() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec + ts.tv_nsec / 1e9;
}

/* Opens argv[1] with the optional password, timing xls_open into
 * *seconds; prints the usage or the failure under name and returns the
 * exit code (0 on success, *stream and *file then the caller's). */
static inline int bench_open(int argc, char** argv, const char* name, FILE** stream,
                             xls_file** file, double* seconds) {
  if (argc != 2 && !(argc == 4 && strcmp(argv[2], "--password") == 0)) {
    fprintf(stderr, "usage: %s FILE [--password P]\n", name);
    return 1;
  }
  *stream = fopen(argv[1], "rb");
  if (!*stream) {
    perror(argv[1]);
    return 2;
  }
  xls_pool pool;
  linux_pool_for_file(*stream, &pool);
  double start = bench_now();
  *file = nullptr;
  uint32_t status = xls_open(&pool, file, 1, nullptr, kel_format_biff8,
                             argc == 4 ? dup2ucs2(argv[3]) : nullptr);
  *seconds = bench_now() - start;
  if (status) {
    fprintf(stderr, "%s: %s: open failed, 0x%08X\n", name, argv[1], status);
    fclose(*stream);
    return 2;
  }
  return 0;
}

#endif /* BENCH_COMMON_H */
