#ifndef ACCDEVICE_MMA8451Q_H
#define ACCDEVICE_MMA8451Q_H

/// The registers of the accelerometer chip NXP MMA8451Q, by the names of its data sheet.
namespace Tavdevice::ACC::Mma8451q
{

enum Register : unsigned char
{
    F_STATUS = 0x00, ///< with the FIFO off: STATUS
    OUT_X_MSB = 0x01,
    F_SETUP = 0x09,
    TRIG_CFG = 0x0A,
    INT_SOURCE = 0x0C,
    WHO_AM_I = 0x0D,
    XYZ_DATA_CFG = 0x0E,
    HP_FILTER_CUTOFF = 0x0F,
    TRANSIENT_CFG = 0x1D,
    TRANSIENT_THS = 0x1F,
    TRANSIENT_COUNT = 0x20,
    CTRL_REG1 = 0x2A,
    CTRL_REG2 = 0x2B,
    CTRL_REG3 = 0x2C,
    CTRL_REG4 = 0x2D,
    CTRL_REG5 = 0x2E
};

constexpr unsigned char IDENTITY = 0x1A; ///< in WHO_AM_I

// F_SETUP
constexpr unsigned char FIFO_OFF = 0x00;
constexpr unsigned char FIFO_CIRCULAR = 0x40;
constexpr unsigned char FIFO_TRIGGERED_WATERMARK_16 = 0xD0;

constexpr unsigned char TRIGGERED_BY_TRANSIENT = 0x20; // TRIG_CFG
constexpr unsigned char SOURCE_FIFO = 0x40;            // INT_SOURCE

// TRANSIENT_CFG: event latch, flags on X, Y and Z, high-pass filter in use
constexpr unsigned char LATCHED_XYZ_FILTERED = 0x1E;
constexpr unsigned char ONE_SAMPLE = 0x01;    // TRANSIENT_COUNT
constexpr unsigned char LOWEST_CUTOFF = 0x03; // HP_FILTER_CUTOFF

// CTRL_REG1
constexpr unsigned char ACTIVE = 0x01;
constexpr unsigned char FAST_READ = 0x02; ///< samples of 8 bits
constexpr unsigned char DATA_RATE = 0x38; ///< mask

constexpr unsigned char NORMAL_MODE = 0x00;                // CTRL_REG2
constexpr unsigned char FIFO_GATE_PINS_ACTIVE_HIGH = 0x82; // CTRL_REG3
constexpr unsigned char FIFO_AND_TRANSIENT = 0x60;         // CTRL_REG4
constexpr unsigned char TRANSIENT_ON_INT1 = 0x20;          // CTRL_REG5; the FIFO is on INT2

}

#endif
