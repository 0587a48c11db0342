#ifndef VIRTUAL_UNIT_PERIPHERALS_ACCELEROMETER_H
#define VIRTUAL_UNIT_PERIPHERALS_ACCELEROMETER_H

#include "virtual-unit/peripherals/I2cSlave.h"
#include "virtual-unit/peripherals/Motion.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>

namespace VirtualUnit
{

/**
 * An emulated accelerometer NXP MMA8451Q, after its data sheet; the names are those used there. A Motion is
 * what it feels.
 *
 * Registers. WHO_AM_I is 0x1A, PL_CFG 0x80, PL_BF_ZCOMP 0x44, P_L_THS_REG 0x84, all others are 0 after a
 * reset (RST in CTRL_REG2) and at first. While the chip is ACTIVE most registers do not change: a write is
 * acknowledged and has no effect. F_SETUP, TRANSIENT_THS, TRANSIENT_COUNT, PL_COUNT, FF_MT_THS, FF_MT_COUNT
 * and PULSE_THS change at any time; of CTRL_REG1 the bit ACTIVE does, of CTRL_REG2 the bit RST. While ACTIVE
 * a FIFO that is on has to be switched off before it can be put into another mode; until then such a write of
 * F_SETUP has no effect.
 *
 * Samples. The first comes 1 ms and two periods of the output data rate after ACTIVE was set, with an empty
 * FIFO and no events pending; then one each period. OUT_X_MSB and the following are 14 bits, left-justified,
 * limited to full scale; with HPF_OUT what passes the high-pass filter, which is of first order and settled
 * at the first sample.
 *
 * Reading goes on from register to register, in 14-bit mode from OUT_Z_LSB, in the fast mode of 8 bits
 * (F_READ, which leaves out the low bytes) from OUT_Z_MSB back to STATUS. With the FIFO on OUT_X_MSB is its
 * door: a read stays there and gets sample after sample, X, Y and Z in turn, the oldest first, and zeros when
 * there is no more. What the read leaves of a sample is lost. The other OUT registers are 0 then.
 *
 * FIFO, 32 samples. Circular: the newest replaces the oldest. Fill: a full one takes no more. Trigger: it
 * keeps as many samples as the watermark says until the transient event comes (with Trig_TRANS in TRIG_CFG),
 * then takes more until it is full, and then none until it is switched off and on. F_OVF is up while it is
 * full (in trigger mode after the trigger only), F_WMRK_FLAG while it holds as many as the watermark, unless
 * that is 0 (never in trigger mode). SRC_FIFO comes with each sample that enters while one of the flags is
 * up, and goes when F_STATUS is read or the FIFO is switched off.
 *
 * Transient event: on an axis that TRANSIENT_CFG enables the filtered acceleration (with HPF_BYP the plain
 * one) is above TRANSIENT_THS x 0.063 g, whatever the scale, for TRANSIENT_COUNT samples in a row (the
 * debounce counter is stepped by the sample in every mode); with DBCNTM 0 a sample below only takes one off
 * the counter. With ELE TRANSIENT_SRC holds the first event until it is read, without it the present state.
 *
 * The bits of INT_SOURCE come up only for interrupts that CTRL_REG4 enables.
 *
 * Not emulated: sleep, self test, orientation, pulses, freefall, offsets and the pins; their registers only
 * keep what is written. The oversampling mode is taken as normal.
 */
class Accelerometer : public I2cSlave
{
public:
    static constexpr unsigned char IDENTITY = 0x1A; ///< WHO_AM_I

    explicit Accelerometer(unsigned char busAddress = 0x1C);

    Motion motion; ///< may be changed at any time; holds for the samples from then on

    unsigned char identity = IDENTITY; ///< what WHO_AM_I gives: another one is another chip

    /// The samples that are due are taken. Reads and writes do it too.
    void Advance(TimePoint now);

protected:
    Bytes ReadRegisters(unsigned char reg, std::size_t count, TimePoint now) override;
    void WriteRegisters(unsigned char reg, std::span<const unsigned char> bytes, TimePoint now) override;

private:
    static constexpr std::size_t REGISTERS = 0x32;
    static constexpr std::size_t AXES = 3;

    using Sample = std::array<std::int16_t, AXES>; ///< as in the registers: left-justified
    using Axes = std::array<double, AXES>;         ///< in g

    enum class FifoMode : unsigned char
    {
        Off,
        Circular,
        Fill,
        Trigger
    };

    void Reset();
    void Activate(TimePoint now);
    void WriteRegister(unsigned char reg, unsigned char value, TimePoint now);
    void WriteFifoSetup(unsigned char value);
    unsigned char ReadRegister(unsigned char reg);
    unsigned char ReadOutput(unsigned char reg);
    unsigned char ReadFifo(std::size_t offset);
    unsigned char After(unsigned char reg) const;

    void TakeSample(TimePoint at);
    Axes Filter(const Axes& felt);
    void DetectTransient(const Axes& acceleration);
    void Store(const Sample& sample);
    void SwitchFifoOff();

    bool Has(unsigned char reg, unsigned char bits) const { return (registers[reg] & bits) != 0; }

    FifoMode Fifo() const;
    std::size_t Watermark() const;
    bool Overflown() const;
    bool AtWatermark() const;
    std::chrono::microseconds Period() const;
    std::int16_t Convert(double g) const;

    std::array<unsigned char, REGISTERS> registers{};
    std::optional<TimePoint> nextSample; ///< none: standby

    Sample latest{};
    unsigned char dataReady = 0; ///< STATUS
    std::deque<Sample> fifo;
    Sample leaving{}; ///< the sample that a read is at
    bool triggered = false;
    bool stopped = false; ///< the FIFO has filled up after its trigger
    bool fifoInterrupt = false;

    bool settled = false; ///< the filter has seen a sample
    Axes felt{};
    Axes filtered{};
    unsigned int debounce = 0;
    unsigned char transientSource = 0;
};

}

#endif
