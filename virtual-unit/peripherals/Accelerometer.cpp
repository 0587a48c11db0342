#include "virtual-unit/peripherals/Accelerometer.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace VirtualUnit
{

namespace
{

using std::chrono::microseconds;

enum Register : unsigned char
{
    STATUS = 0x00, // with the FIFO on: F_STATUS
    OUT_X_MSB = 0x01,
    OUT_Z_MSB = 0x05,
    OUT_Z_LSB = 0x06,
    F_SETUP = 0x09,
    TRIG_CFG = 0x0A,
    SYSMOD = 0x0B,
    INT_SOURCE = 0x0C,
    WHO_AM_I = 0x0D,
    XYZ_DATA_CFG = 0x0E,
    HP_FILTER_CUTOFF = 0x0F,
    PL_CFG = 0x11,
    PL_COUNT = 0x12,
    PL_BF_ZCOMP = 0x13,
    P_L_THS_REG = 0x14,
    FF_MT_CFG = 0x15,
    FF_MT_THS = 0x17,
    FF_MT_COUNT = 0x18,
    TRANSIENT_CFG = 0x1D,
    TRANSIENT_SRC = 0x1E,
    TRANSIENT_THS = 0x1F,
    TRANSIENT_COUNT = 0x20,
    PULSE_CFG = 0x21,
    PULSE_THSX = 0x23,
    PULSE_THSZ = 0x25,
    PULSE_TMLT = 0x26,
    PULSE_WIND = 0x28,
    ASLP_COUNT = 0x29,
    CTRL_REG1 = 0x2A,
    CTRL_REG2 = 0x2B,
    CTRL_REG4 = 0x2D,
    OFF_Z = 0x31
};

constexpr unsigned char F_MODE_SHIFT = 6;
constexpr unsigned char F_WMRK = 0x3F;
constexpr unsigned char F_OVF = 0x80;
constexpr unsigned char F_WMRK_FLAG = 0x40;

constexpr unsigned char TRIG_TRANS = 0x20;
constexpr unsigned char SYSMOD_WAKE = 0x01;

// INT_SOURCE, CTRL_REG4
constexpr unsigned char FIFO_INTERRUPT = 0x40;
constexpr unsigned char TRANSIENT_INTERRUPT = 0x20;
constexpr unsigned char DATA_READY_INTERRUPT = 0x01;

// STATUS
constexpr unsigned char AXES_READY = 0x07;
constexpr unsigned char ANY_READY = 0x08;
constexpr unsigned char OVERWRITE_SHIFT = 4;
constexpr unsigned char ANY_OVERWRITTEN = 0x80;

constexpr unsigned char FULL_SCALE = 0x03; // XYZ_DATA_CFG
constexpr unsigned char HPF_OUT = 0x10;
constexpr unsigned char CUTOFF = 0x03; // HP_FILTER_CUTOFF

// TRANSIENT_CFG, _SRC, _THS
constexpr unsigned char HPF_BYP = 0x01;
constexpr unsigned char FIRST_AXIS_ENABLED = 0x02;
constexpr unsigned char ELE = 0x10;
constexpr unsigned char EVENT_ACTIVE = 0x40;
constexpr unsigned char DBCNTM = 0x80;
constexpr unsigned char THRESHOLD = 0x7F;
constexpr double THRESHOLD_STEP = 0.063; // g
constexpr unsigned int HIGHEST_COUNT = 0xFF;

// CTRL_REG1, CTRL_REG2
constexpr unsigned char ACTIVE = 0x01;
constexpr unsigned char F_READ = 0x02;
constexpr unsigned char LNOISE = 0x04;
constexpr unsigned char DATA_RATE_SHIFT = 3;
constexpr unsigned char DATA_RATE = 0x07;
constexpr unsigned char RST = 0x40;

constexpr std::size_t FIFO_SAMPLES = 32;
constexpr microseconds TURN_ON_TIME{1000}; // and two periods

constexpr microseconds PERIODS[] = {microseconds(1250),   microseconds(2500),  microseconds(5000),
                                    microseconds(10000),  microseconds(20000), microseconds(80000),
                                    microseconds(160000), microseconds(640000)};

// The highest cut-off frequency of each rate, in Hz; each step of HP_FILTER_CUTOFF halves it.
constexpr double HIGHEST_CUTOFFS[] = {16, 16, 8, 4, 2, 2, 2, 2};

// What the chip can feel, whatever its full scale, in g.
constexpr double RANGE = 8;
constexpr double LOW_NOISE_RANGE = 4;

constexpr double STEPS_PER_G = 4096; // of the 14 bits at 2 g
constexpr long HIGHEST_STEP = 8191;
constexpr long LOWEST_STEP = -8192;
constexpr long LEFT_JUSTIFIED = 4;

bool ChangesAnyTime(unsigned char reg)
{
    constexpr Register REGISTERS[] = {PL_COUNT, FF_MT_THS, FF_MT_COUNT, TRANSIENT_THS, TRANSIENT_COUNT};
    return std::ranges::find(REGISTERS, reg) != std::end(REGISTERS) ||
           (reg >= PULSE_THSX && reg <= PULSE_THSZ);
}

bool ChangesInStandby(unsigned char reg)
{
    constexpr Register REGISTERS[] = {TRIG_CFG,    XYZ_DATA_CFG, HP_FILTER_CUTOFF, PL_CFG,   PL_BF_ZCOMP,
                                      P_L_THS_REG, FF_MT_CFG,    TRANSIENT_CFG,    PULSE_CFG};
    return std::ranges::find(REGISTERS, reg) != std::end(REGISTERS) || (reg >= PULSE_TMLT && reg <= OFF_Z);
}

bool IsOutput(unsigned char reg)
{
    return reg >= OUT_X_MSB && reg <= OUT_Z_LSB;
}

unsigned char HighByte(std::int16_t value)
{
    return static_cast<unsigned char>(static_cast<std::uint16_t>(value) >> 8);
}

unsigned char LowByte(std::int16_t value)
{
    return static_cast<unsigned char>(static_cast<std::uint16_t>(value) & 0xFF);
}

}

Accelerometer::Accelerometer(unsigned char busAddress) : I2cSlave(busAddress)
{
    Reset();
}

void Accelerometer::Reset()
{
    registers = {};
    registers[PL_CFG] = 0x80;
    registers[PL_BF_ZCOMP] = 0x44;
    registers[P_L_THS_REG] = 0x84;
    nextSample.reset();
    latest = {};
    dataReady = 0;
    transientSource = 0;
    SwitchFifoOff();
}

void Accelerometer::Activate(TimePoint now)
{
    nextSample = now + TURN_ON_TIME + 2 * Period();
    latest = {};
    dataReady = 0;
    settled = false;
    debounce = 0;
    transientSource = 0;
    SwitchFifoOff();
}

void Accelerometer::Advance(TimePoint now)
{
    while (nextSample && *nextSample <= now)
    {
        TakeSample(*nextSample);
        *nextSample += Period();
    }
}

I2cSlave::Bytes Accelerometer::ReadRegisters(unsigned char reg, std::size_t count, TimePoint now)
{
    Advance(now);
    Bytes bytes;
    while (bytes.size() < count)
    {
        if (reg == OUT_X_MSB && Fifo() != FifoMode::Off)
        {
            // It stays at the door, whatever it was that the read began with.
            for (std::size_t offset = 0; bytes.size() < count; ++offset)
            {
                bytes.push_back(ReadFifo(offset));
            }
            break;
        }
        bytes.push_back(ReadRegister(reg));
        reg = After(reg);
    }
    return bytes;
}

unsigned char Accelerometer::After(unsigned char reg) const
{
    const bool fast = IsOutput(reg) && Fifo() == FifoMode::Off && Has(CTRL_REG1, F_READ);
    if (IsOutput(reg) && reg >= (fast ? OUT_Z_MSB : OUT_Z_LSB))
    {
        return STATUS;
    }
    return static_cast<unsigned char>(reg + (fast ? 2 : 1));
}

unsigned char Accelerometer::ReadRegister(unsigned char reg)
{
    if (reg >= REGISTERS)
    {
        return 0;
    }
    if (IsOutput(reg))
    {
        return ReadOutput(reg);
    }
    switch (reg)
    {
    case STATUS:
        if (Fifo() == FifoMode::Off)
        {
            return dataReady;
        }
        fifoInterrupt = false;
        return static_cast<unsigned char>((Overflown() ? F_OVF : 0) | (AtWatermark() ? F_WMRK_FLAG : 0) |
                                          static_cast<unsigned char>(fifo.size()));
    case SYSMOD:
        return nextSample ? SYSMOD_WAKE : 0;
    case INT_SOURCE: {
        const int pending = (fifoInterrupt ? FIFO_INTERRUPT : 0) |
                            ((transientSource & EVENT_ACTIVE) != 0 ? TRANSIENT_INTERRUPT : 0) |
                            ((dataReady & AXES_READY) != 0 ? DATA_READY_INTERRUPT : 0);
        return static_cast<unsigned char>(pending & registers[CTRL_REG4]);
    }
    case WHO_AM_I:
        return identity;
    case TRANSIENT_SRC:
        return std::exchange(transientSource, static_cast<unsigned char>(0));
    default:
        return registers[reg];
    }
}

unsigned char Accelerometer::ReadOutput(unsigned char reg)
{
    if (Fifo() != FifoMode::Off)
    {
        return 0;
    }
    const std::size_t axis = (reg - OUT_X_MSB) / 2U;
    if ((reg - OUT_X_MSB) % 2 != 0)
    {
        return LowByte(latest[axis]);
    }
    const unsigned int read = (1U | 1U << OVERWRITE_SHIFT) << axis;
    dataReady = static_cast<unsigned char>(dataReady & ~read);
    if ((dataReady & AXES_READY) == 0)
    {
        dataReady = 0;
    }
    return HighByte(latest[axis]);
}

unsigned char Accelerometer::ReadFifo(std::size_t offset)
{
    const std::size_t bytesPerAxis = Has(CTRL_REG1, F_READ) ? 1 : 2;
    const std::size_t place = offset % (AXES * bytesPerAxis);
    if (place == 0)
    {
        leaving = fifo.empty() ? Sample{} : fifo.front();
        if (!fifo.empty())
        {
            fifo.pop_front();
        }
    }
    const std::int16_t value = leaving[place / bytesPerAxis];
    return place % bytesPerAxis == 0 ? HighByte(value) : LowByte(value);
}

void Accelerometer::WriteRegisters(unsigned char reg, std::span<const unsigned char> bytes, TimePoint now)
{
    Advance(now);
    for (const unsigned char value : bytes)
    {
        WriteRegister(reg++, value, now);
    }
}

void Accelerometer::WriteRegister(unsigned char reg, unsigned char value, TimePoint now)
{
    const bool active = nextSample.has_value();
    if (reg == F_SETUP)
    {
        WriteFifoSetup(value);
    }
    else if (reg == CTRL_REG2 && (value & RST) != 0)
    {
        Reset();
    }
    else if (reg == CTRL_REG1)
    {
        const int kept = active ? registers[CTRL_REG1] & ~ACTIVE : value & ~ACTIVE;
        registers[CTRL_REG1] = static_cast<unsigned char>(kept | (value & ACTIVE));
        if (!active && (value & ACTIVE) != 0)
        {
            Activate(now);
        }
        else if ((value & ACTIVE) == 0)
        {
            nextSample.reset();
        }
    }
    else if (ChangesAnyTime(reg) || (ChangesInStandby(reg) && !active))
    {
        registers[reg] = value;
    }
}

void Accelerometer::WriteFifoSetup(unsigned char value)
{
    const auto mode = static_cast<FifoMode>(value >> F_MODE_SHIFT);
    if (nextSample && Fifo() != FifoMode::Off && mode != FifoMode::Off && mode != Fifo())
    {
        return;
    }
    if (mode != Fifo())
    {
        SwitchFifoOff();
    }
    registers[F_SETUP] = value;
}

void Accelerometer::SwitchFifoOff()
{
    fifo.clear();
    triggered = false;
    stopped = false;
    fifoInterrupt = false;
}

void Accelerometer::TakeSample(TimePoint at)
{
    const Motion::Acceleration acceleration = motion.At(at);
    const double range = Has(CTRL_REG1, LNOISE) ? LOW_NOISE_RANGE : RANGE;
    Axes present = {acceleration.x, acceleration.y, acceleration.z};
    for (double& axis : present)
    {
        axis = std::clamp(axis, -range, range);
    }
    const Axes passed = Filter(present);
    DetectTransient(Has(TRANSIENT_CFG, HPF_BYP) ? present : passed);

    Sample sample{};
    std::ranges::transform(Has(XYZ_DATA_CFG, HPF_OUT) ? passed : present, sample.begin(),
                           [this](double g) { return Convert(g); });
    Store(sample);
}

Accelerometer::Axes Accelerometer::Filter(const Axes& present)
{
    const std::size_t rate = registers[CTRL_REG1] >> DATA_RATE_SHIFT & DATA_RATE;
    const double cutoff = HIGHEST_CUTOFFS[rate] / (1 << (registers[HP_FILTER_CUTOFF] & CUTOFF));
    const double period = std::chrono::duration<double>(Period()).count();
    const double kept = 1 / (1 + 2 * std::numbers::pi * cutoff * period);
    for (std::size_t axis = 0; axis < AXES; ++axis)
    {
        filtered[axis] = settled ? kept * (filtered[axis] + present[axis] - felt[axis]) : 0;
    }
    felt = present;
    settled = true;
    return filtered;
}

void Accelerometer::DetectTransient(const Axes& acceleration)
{
    const double threshold = (registers[TRANSIENT_THS] & THRESHOLD) * THRESHOLD_STEP;
    unsigned int axes = 0;
    for (std::size_t axis = 0; axis < AXES; ++axis)
    {
        const bool enabled = Has(TRANSIENT_CFG, static_cast<unsigned char>(FIRST_AXIS_ENABLED << axis));
        if (enabled && std::abs(acceleration[axis]) > threshold)
        {
            const unsigned int flagAndSign = acceleration[axis] < 0 ? 0b11 : 0b10;
            axes |= flagAndSign << (2 * axis);
        }
    }
    if (axes != 0)
    {
        debounce = std::min(debounce + 1, HIGHEST_COUNT);
    }
    else
    {
        debounce = Has(TRANSIENT_THS, DBCNTM) || debounce == 0 ? 0 : debounce - 1;
    }
    const bool event = axes != 0 && debounce >= registers[TRANSIENT_COUNT];
    triggered = triggered || (event && Fifo() == FifoMode::Trigger && Has(TRIG_CFG, TRIG_TRANS));
    if (!Has(TRANSIENT_CFG, ELE) || (event && transientSource == 0))
    {
        transientSource = static_cast<unsigned char>(event ? EVENT_ACTIVE | axes : 0);
    }
}

void Accelerometer::Store(const Sample& sample)
{
    latest = sample;
    const FifoMode mode = Fifo();
    if (mode == FifoMode::Off)
    {
        const unsigned int overwritten = static_cast<unsigned int>(dataReady & AXES_READY) << OVERWRITE_SHIFT;
        dataReady = static_cast<unsigned char>((overwritten != 0 ? ANY_OVERWRITTEN | overwritten : 0) |
                                               ANY_READY | AXES_READY);
        return;
    }
    const bool full = fifo.size() >= FIFO_SAMPLES;
    if (stopped || (full && mode == FifoMode::Fill))
    {
        return;
    }
    fifo.push_back(sample);
    const std::size_t room = mode == FifoMode::Trigger && !triggered ? Watermark() : FIFO_SAMPLES;
    while (fifo.size() > room)
    {
        fifo.pop_front();
    }
    stopped = mode == FifoMode::Trigger && triggered && fifo.size() == FIFO_SAMPLES;
    fifoInterrupt = fifoInterrupt || Overflown() || AtWatermark();
}

Accelerometer::FifoMode Accelerometer::Fifo() const
{
    return static_cast<FifoMode>(registers[F_SETUP] >> F_MODE_SHIFT);
}

std::size_t Accelerometer::Watermark() const
{
    return registers[F_SETUP] & F_WMRK;
}

bool Accelerometer::Overflown() const
{
    return fifo.size() == FIFO_SAMPLES && (Fifo() != FifoMode::Trigger || triggered);
}

bool Accelerometer::AtWatermark() const
{
    return Fifo() != FifoMode::Trigger && Watermark() != 0 && fifo.size() >= Watermark();
}

microseconds Accelerometer::Period() const
{
    return PERIODS[registers[CTRL_REG1] >> DATA_RATE_SHIFT & DATA_RATE];
}

std::int16_t Accelerometer::Convert(double g) const
{
    const int scale = std::min(registers[XYZ_DATA_CFG] & FULL_SCALE, 2); // 2, 4, 8 g
    const long steps = std::lround(g * STEPS_PER_G / (1 << scale));
    return static_cast<std::int16_t>(std::clamp(steps, LOWEST_STEP, HIGHEST_STEP) * LEFT_JUSTIFIED);
}

}
