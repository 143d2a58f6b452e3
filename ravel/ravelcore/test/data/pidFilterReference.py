#!/usr/bin/python3
"""Makes pidFilterReference.txt: what one control channel must compute, bit for bit.

It is written from the channel's definition, not from pidFilter.cpp: every operation is one operation of numpy in
single precision, or in double precision where the definition says so, in the order in which the definition writes it.
The one function that numpy might round differently, the tangent, is the C library's tanf.

    pidFilterReference.py            writes the values to standard output
    pidFilterReference.py --check F  compares them with the file F; exit status 1 and the first difference if they differ

All numbers in the file are the bits of a float as eight hexadecimal digits; every NaN is written as "nan", because its
sign and payload are the processor's business.
"""

import ctypes
import sys

import numpy as np

F = np.float32
D = np.float64
NAN = F("nan")
INF = F("inf")
np.seterr(all="ignore")

_libm = ctypes.CDLL("libm.so.6")
_libm.tanf.argtypes = [ctypes.c_float]
_libm.tanf.restype = ctypes.c_float

PARAMETERS = ["feed_forward_offset", "sampling_period", "kp", "ki", "kd", "karw", "bp", "tt", "n", "ulow", "uhigh",
              "freq"]
DERIVED = ["a0", "bi", "ci", "ad", "bd", "gain", "n1", "d1", "n2", "d2"]
STATE = ["ui", "ud", "last_meas", "internal1", "internal2"]
DEFAULTS = dict(feed_forward_offset=0, sampling_period=0.002, kp=0.001, ki=200, kd=0, karw=0, bp=1, tt=0.1, n=10,
                ulow=-200, uhigh=200, freq=30)


def bits(value):
    """The text form of a float in the file."""
    assert isinstance(value, F), type(value)
    return "nan" if np.isnan(value) else f"{value.view(np.uint32):08x}"


def tangent(x):
    return F(_libm.tanf(float(x)))


class Channel:
    """One channel; all members are single precision."""

    def __init__(self, **parameters):
        for name, value in {**DEFAULTS, **parameters}.items():
            setattr(self, name, F(value))
        self.derive()

    def derive(self):
        for name in STATE:
            setattr(self, name, F(0))
        h = self.sampling_period
        self.a0 = h / self.tt if self.tt != 0 else F(0)
        self.bi = (h * self.kp) * self.ki if self.ki != 0 else F(0)
        self.ci = self.karw * h if self.karw != 0 else F(0)
        denominator = self.n * h + self.kd
        self.ad = self.kd / denominator
        self.bd = ((self.n * self.kp) * self.kd) / denominator
        self.x = (F(3.1415927) * self.freq) * h
        self.t = tangent(self.x)
        c = F(1) / self.t
        c2 = D(c * c)
        r = D(c) * D(1.7320508075688772)
        den = F((c2 + r) + D(1))
        self.gain = F(1) / den
        self.d1 = F((c2 - D(1)) * D(-2)) / den
        self.d2 = F((c2 - r) + D(1)) / den
        self.n1 = F(2)
        self.n2 = F(1)

    def filter(self, init_value, value, first):
        if first:
            s = ((F(1) - self.gain) * init_value) / ((((self.n1 + self.n2) - self.d1) - self.d2) * self.gain)
            w1, w2 = s, s
        else:
            w1, w2 = self.internal1, self.internal2
        w = (value - self.d1 * w1) - self.d2 * w2
        self.internal1, self.internal2 = w, w1
        return ((self.n1 * w1 + w) + self.n2 * w2) * self.gain

    def pid(self, meas, setpoint, arw_input, first):
        integral = meas if first else self.ui
        proportional = (self.bp * setpoint - meas) * self.kp
        derivative = self.ad * self.ud - (meas - self.last_meas) * self.bd
        self.ud = derivative
        v = (proportional + integral) + derivative
        if v > self.uhigh:
            u = self.uhigh
        elif self.ulow > v:
            u = self.ulow
        else:
            u = v
        self.last_meas = meas
        self.ui = (self.ci * arw_input + ((setpoint - meas) * self.bi + integral)) + (u - v) * self.a0
        return u

    def combined(self, meas, setpoint, arw_input, pid_on, filter_on, add_on, first):
        if filter_on:
            f = self.filter(meas, setpoint, first)
        else:
            f = F(0) if meas == setpoint else setpoint
        if pid_on:
            out = self.pid(meas, f, arw_input, first)
        else:
            out = meas if meas == setpoint else meas + f
        return out + f if add_on else out


class Random:
    """A xorshift generator: the same numbers with every version of numpy."""

    def __init__(self, seed):
        self.state = seed

    def bits(self):
        for shift in (13, -17, 5):
            moved = self.state << shift if shift > 0 else self.state >> -shift
            self.state = (self.state ^ moved) & 0xFFFFFFFF
        return self.state

    def uniform(self, low, high):
        return F(low + (high - low) * (self.bits() / 2.0**32))

    def log_uniform(self, low, high):
        return F(10.0 ** (low + (high - low) * (self.bits() / 2.0**32)))

    def any_float(self):
        """Any bit pattern: numbers of every size, infinities, NaN, subnormal numbers."""
        return np.array([self.bits()], dtype=np.uint32).view(F)[0]

    def choice(self, values):
        return values[self.bits() % len(values)]


def random_inputs(random, count, scale):
    return [(k == 0, random.uniform(-scale, scale), random.uniform(-scale, scale), random.uniform(-scale, scale))
            for k in range(count)]


def with_special_values(random, inputs, values, every):
    """Replaces one input of every so many steps by a special value."""
    changed = []
    for k, (first, *numbers) in enumerate(inputs):
        if k % every == every - 1:
            numbers[random.bits() % 3] = F(random.choice(values))
        changed.append((first, *numbers))
    return changed


def constant_inputs(count, meas, setpoint, arw_input=0):
    return [(k == 0, F(meas), F(setpoint), F(arw_input)) for k in range(count)]


def parameter_cases():
    """Parameters for which only the coefficients matter; a few steps show that they reach the arithmetic."""
    yield "defaults", {}
    yield "tt_zero", dict(tt=0)
    yield "tt_negative_zero", dict(tt=-0.0)
    yield "tt_nan", dict(tt=NAN)
    yield "ki_zero", dict(ki=0)
    yield "ki_nan", dict(ki=NAN)
    yield "karw_nan", dict(karw=NAN)
    yield "kd_zero_and_n_zero", dict(kd=0, n=0)
    yield "kd_and_n_zero", dict(kd=0.05, n=0)
    yield "period_nan", dict(sampling_period=NAN)
    yield "period_tiny", dict(sampling_period=1e-30)
    yield "freq_zero", dict(freq=0)
    yield "freq_negative", dict(freq=-30)
    yield "freq_nan", dict(freq=NAN)
    yield "freq_infinite", dict(freq=INF)
    for freq in (1e-3, 1, 100, 200, 240, 249, 249.9, 249.99, 249.999, 249.99998, 250, 250.00002, 251, 300, 500, 1000):
        yield f"freq_{freq}", dict(freq=freq)
    yield "uhigh_below_ulow", dict(ulow=1, uhigh=-1)
    yield "limits_nan", dict(ulow=NAN, uhigh=NAN)
    yield "limits_infinite", dict(ulow=-INF, uhigh=INF)
    yield "everything_large", dict(kp=3e38, ki=3e38, kd=3e38, karw=3e38, n=3e38, bp=3e38)
    yield "everything_small", dict(kp=1e-42, ki=1e-42, kd=1e-42, karw=1e-42, n=1e-42, tt=1e-42, bp=1e-42)


def random_parameters(random):
    return dict(feed_forward_offset=random.uniform(-10, 10), sampling_period=random.log_uniform(-4, -1),
                kp=random.log_uniform(-4, 1), ki=random.log_uniform(-1, 3), kd=random.log_uniform(-4, 0),
                karw=random.log_uniform(-2, 2), bp=random.uniform(0, 1.5), tt=random.log_uniform(-3, 1),
                n=random.uniform(1, 30), ulow=random.uniform(-60, -10), uhigh=random.uniform(10, 60),
                freq=random.log_uniform(-1, 2))


def scenarios():
    """(name, flags, channel, inputs); flags None steps the filter, then the controller on the filter's output."""
    random = Random(20240229)
    for name, parameters in parameter_cases():
        yield "coefficients_" + name, None, Channel(**parameters), random_inputs(random, 6, 100)
    yield "long_default", None, Channel(), random_inputs(random, 600, 300)
    full = dict(kp=0.4, ki=35, kd=0.02, karw=12.5, bp=0.7, tt=0.05, n=8, ulow=-50, uhigh=50, freq=20)
    yield "long_everything_on", None, Channel(**full), random_inputs(random, 600, 100)
    yield "derivative", None, Channel(kp=2, ki=0, kd=0.1, n=5, tt=0, ulow=-1e6, uhigh=1e6), \
        random_inputs(random, 200, 10)
    yield "windup_and_back", None, Channel(**full), \
        constant_inputs(60, 0, 500, 3) + [(False, F(0), F(-500), F(-3))] * 60 + [(False, F(1), F(1), F(0))] * 30
    for number in range(6):
        yield f"random_{number}", None, Channel(**random_parameters(random)), random_inputs(random, 120, 100)
    special = [NAN, INF, -INF, F(-0.0), F(0), F(1e-45), F(-1e-40), F(3.4028235e38), F(-3.4028235e38)]
    for number in range(4):
        # Few steps each: once a NaN or an infinity is in the state it stays there.
        inputs = with_special_values(random, random_inputs(random, 12, 100), special, 5)
        yield f"special_values_{number}", None, Channel(**full), inputs
    for number in range(20):
        inputs = [(k == 0, random.any_float(), random.any_float(), random.any_float()) for k in range(8)]
        yield f"any_bits_{number}", None, Channel(**full), inputs
    yield "subnormal_decay", None, Channel(**full), [(True, F(1e-37), F(1e-37), F(0))] + \
        [(False, F(0), F(0), F(0))] * 200
    yield "first_again", None, Channel(**full), random_inputs(random, 10, 100) * 3
    for flags in range(8):
        inputs = random_inputs(random, 40, 100)
        # Where measurement and set-point are equal, and where NaN makes them unequal.
        inputs[10:20] = [(False, value, value, F(1)) for _, value, _, _ in inputs[10:20]]
        inputs[20] = (False, F(0.0), F(-0.0), F(0))
        inputs[-2:] = [(False, NAN, NAN, F(0)), (False, F(2), NAN, F(0))]
        yield f"combined_{flags:03b}", f"{flags:03b}", Channel(**full), inputs
    # Frequencies for which d1 is another number when it is divided in double and then narrowed. Behind the others, so
    # that these keep their random inputs.
    for freq in (152.05, 152.07, 152.11):
        yield f"coefficients_freq_{freq}", None, Channel(freq=freq), random_inputs(random, 6, 100)


def lines():
    yield "# Made by pidFilterReference.py, which also says what this is. Do not edit."
    yield "# parameters " + " ".join(PARAMETERS)
    yield "# tangent argument result"
    yield "# derived " + " ".join(DERIVED)
    yield "# flags pid_enabled filter_enabled add_setpoint, or - for FilterCompute, then PidCompute on its output"
    yield "# step first meas setpoint arw_input filter_output output " + " ".join(STATE)
    for name, flags, channel, inputs in scenarios():
        yield "scenario " + name
        yield "parameters " + " ".join(bits(getattr(channel, field)) for field in PARAMETERS)
        yield "tangent " + bits(channel.x) + " " + bits(channel.t)
        yield "derived " + " ".join(bits(getattr(channel, field)) for field in DERIVED)
        yield "flags " + (flags or "-")
        for first, meas, setpoint, arw_input in inputs:
            filtered = F(0)
            if flags is None:
                filtered = channel.filter(meas, setpoint, first)
                output = channel.pid(meas, filtered, arw_input, first)
            else:
                output = channel.combined(meas, setpoint, arw_input, *(flag == "1" for flag in flags), first)
            numbers = [meas, setpoint, arw_input, filtered, output] + [getattr(channel, field) for field in STATE]
            yield f"step {first:d} " + " ".join(bits(number) for number in numbers)


def check(file_name):
    with open(file_name, encoding="ascii") as file:
        stored = file.read().splitlines()
    made = list(lines())
    for number, (old, new) in enumerate(zip(stored, made), start=1):
        if old != new:
            print(f"{file_name}:{number}: expected \"{new}\" but found \"{old}\".")
            return 1
    if len(stored) != len(made):
        print(f"{file_name}: expected {len(made)} lines but found {len(stored)}.")
        return 1
    print(f"{len(made)} lines as made.")
    return 0


def main(arguments):
    if len(arguments) == 2 and arguments[0] == "--check":
        return check(arguments[1])
    if arguments:
        print(__doc__)
        return 2
    print("\n".join(lines()))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
