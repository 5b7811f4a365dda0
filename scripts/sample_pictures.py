"""The pictures of the sample files, drawn by formula and given as PGM and PPM files.

Only operations that IEEE 754 rounds exactly are used, so that every machine draws the same samples.
"""

import math


def mix(a, b, share):
    share = min(max(share, 0.0), 1.0)
    return tuple(p + (q - p) * share for p, q in zip(a, b))


def grain(x, y, seed):
    """A random-looking number from 0 to 1 that belongs to a grid point."""
    h = (x * 0x9E3779B1 ^ y * 0x85EBCA77 ^ seed * 0xC2B2AE3D) & 0xFFFFFFFF
    h = (h ^ h >> 15) * 0x2C1B3C6D & 0xFFFFFFFF
    h = (h ^ h >> 12) * 0x297A2D39 & 0xFFFFFFFF
    return (h ^ h >> 15) / 0xFFFFFFFF


def noise(x, y, seed, octaves=4):
    """Smooth noise around 0.5, each octave twice as fine and half as strong as the one before."""
    total = 0.0
    for octave in range(octaves):
        column, row = math.floor(x), math.floor(y)
        fx, fy = x - column, y - row
        fx, fy = fx * fx * (3 - 2 * fx), fy * fy * (3 - 2 * fy)
        a, b = grain(column, row, seed), grain(column + 1, row, seed)
        c, d = grain(column, row + 1, seed), grain(column + 1, row + 1, seed)
        top, bottom = a + (b - a) * fx, c + (d - c) * fx
        total += (top + (bottom - top) * fy - 0.5) / 2**octave
        x, y, seed = 2 * x, 2 * y, seed + 1
    return 0.5 + total / 1.5


def sky(x, y):
    colour = mix((0.20, 0.38, 0.68), (0.98, 0.83, 0.62), y / 0.56)
    distance = math.sqrt((x - 0.93) * (x - 0.93) + (y - 0.36) * (y - 0.36))
    colour = mix(colour, (1.0, 0.86, 0.58), 0.7 / (1 + (distance / 0.11) ** 2))
    colour = mix(colour, (1.0, 0.98, 0.90), (0.050 - distance) * 160)
    return mix(colour, (1.0, 0.94, 0.90), (noise(x * 3, y * 11, 40, 5) - 0.50) * 2.2)


# Far to near: a ridge's height, how far it varies and how often, its colour, its share of haze.
HILLS = (
    (0.53, 0.26, 2.1, (0.36, 0.42, 0.58), 0.45),
    (0.56, 0.14, 3.4, (0.24, 0.36, 0.38), 0.22),
)
WATER, SHORE = 0.60, 0.86


def meadow(x, y):
    blades = noise(x * 26, y * 13, 70) * 0.7 + noise(x * 70, y * 22, 75, 2) * 0.5
    return mix((0.10, 0.19, 0.07), (0.52, 0.58, 0.20), blades * 1.5 - 0.45)


def landscape(x, y):
    """The colour at a point of the scene, which is 4/3 wide and 1 high."""
    if y > SHORE - 0.16 * (noise(x * 1.7, 0, 60) - 0.35) + 0.05 * (x - 0.7):
        return meadow(x, y)
    if y > WATER:
        ripple = noise(x * 7, y * 70, 80, 3) - 0.5
        mirrored = landscape(x + 0.02 * ripple, 2 * WATER - y - 0.05 * ripple - 0.01)
        return mix(mirrored, (0.10, 0.20, 0.30), 0.30 + 0.5 * ripple)
    colour = sky(x, y)
    for seed, (base, rise, often, tint, haze) in enumerate(HILLS):
        ridge = base - rise * (noise(x * often, 0, 10 + seed, 6) - 0.25)
        if y > ridge:
            slope = 0.75 + 0.5 * noise(x * 30 + y * 18, y * 24, 20 + seed)
            lit = tuple(part * slope for part in tint)
            colour = mix(lit, (0.93, 0.80, 0.68), haze + 0.5 * (y - ridge))
    return colour


def photograph(width, height):
    """The landscape as a PPM file, with the grain of a camera."""
    samples = bytearray()
    for y in range(height):
        for x in range(width):
            colour = landscape((x + 0.5) / height, (y + 0.5) / height)
            for channel, part in enumerate(colour):
                value = part * 255 + 5 * (grain(x, y, 90 + channel) - 0.5)
                samples.append(min(max(round(value), 0), 255))
    return b"P6\n%d %d\n255\n" % (width, height) + bytes(samples)


def framed_target(width, height):
    """A white-framed colour field with a ring on it, as a PPM file."""
    samples = bytearray()
    for y in range(height):
        for x in range(width):
            dx, dy = (2 * x + 1 - width) / height, (2 * y + 1 - height) / height
            if min(x, y, width - 1 - x, height - 1 - y) < 2:
                samples += b"\xff\xff\xff"
            elif 0.35 < dx * dx + dy * dy < 0.65:
                samples += b"\xf2\xc1\x2e"
            else:
                samples += bytes([40 + x * 120 // width, 30, 170 - y * 90 // height])
    return b"P6\n%d %d\n255\n" % (width, height) + bytes(samples)


def grey_ramp(size):
    return b"P5\n%d %d\n255\n" % (size, size) + bytes(
        (x + y) * 255 // (2 * size - 2) for y in range(size) for x in range(size)
    )
