#!/usr/bin/python3
"""The reference beside bench_read: python3-xlrd opens the workbook and reads
every cell value; prints the same figures in the same form."""
import resource
import sys
import time


def rss_kb(field):
    with open("/proc/self/status") as status:
        for line in status:
            if line.startswith(field):
                return int(line.split()[1])
    return 0


def main():
    before = rss_kb("VmRSS:")
    start = time.monotonic()
    import xlrd
    book = xlrd.open_workbook(sys.argv[1], on_demand=False)
    opened = time.monotonic()
    cells = 0
    for sheet in book.sheets():
        for row in range(sheet.nrows):
            types = sheet.row_types(row)
            for column, value in enumerate(sheet.row_values(row)):
                if types[column] != xlrd.XL_CELL_EMPTY:
                    cells += 1
    read = time.monotonic()
    peak = rss_kb("VmHWM:")
    print("open_s %.3f\nread_s %.3f\npeak_rss_kb %d\ncells %d\nbytes_per_cell %.1f" % (
        opened - start, read - opened, peak, cells,
        (peak - before) * 1024.0 / cells if cells else 0.0))


main()
