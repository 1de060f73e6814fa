#!/usr/bin/env python3
"""Draws the gizmo's home button, resources/images/FitNormal.png: a white house on a dark
rounded square, 64 x 64 RGBA, anti-aliased by 4 x 4 supersampling. Needs only the standard
library; run it from the repository root after changing the drawing."""
import struct
import zlib

SIZE, SUB = 64, 4


def inside_round_rect(x, y, x0, y0, x1, y1, r):
    cx = min(max(x, x0 + r), x1 - r)
    cy = min(max(y, y0 + r), y1 - r)
    return (x - cx) ** 2 + (y - cy) ** 2 <= r * r


def inside_house(x, y):
    # y grows downwards here; the roof apex at the top.
    roof = 10 <= y <= 30 and abs(x - 32) <= (y - 10) * 1.1
    body = 29 <= y <= 52 and 17 <= x <= 47
    door = 38 <= y <= 52 and 28 <= x <= 36
    return (roof or body) and not door


def pixel(px, py):
    plate = house = 0
    for sy in range(SUB):
        for sx in range(SUB):
            x = px + (sx + 0.5) / SUB
            y = py + (sy + 0.5) / SUB
            if inside_round_rect(x, y, 1, 1, 63, 63, 12):
                plate += 1
                if inside_house(x, y):
                    house += 1
    n = SUB * SUB
    a_plate, a_house = plate / n, house / n
    # White house over a plate of 45% grey at 70% opacity.
    grey = 0.45
    alpha = a_house + a_plate * 0.7 * (1 - a_house)
    if alpha == 0:
        return (0, 0, 0, 0)
    value = (a_house * 1.0 + a_plate * 0.7 * (1 - a_house) * grey) / alpha
    c = int(round(value * 255))
    return (c, c, c, int(round(alpha * 255)))


def write_png(path, w, h, rows):
    raw = b"".join(b"\x00" + bytes(v for p in row for v in p) for row in rows)

    def chunk(tag, data):
        body = tag + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n")
        f.write(chunk(b"IHDR", struct.pack(">IIBBBBB", w, h, 8, 6, 0, 0, 0)))
        f.write(chunk(b"IDAT", zlib.compress(raw, 9)))
        f.write(chunk(b"IEND", b""))


if __name__ == "__main__":
    rows = [[pixel(x, y) for x in range(SIZE)] for y in range(SIZE)]
    write_png("resources/images/FitNormal.png", SIZE, SIZE, rows)
