#ifndef ACCDEVICE_ACCDEVICE_H
#define ACCDEVICE_ACCDEVICE_H

#include "I2C/I2c.h"
#include "base/Export.h"
#include "base/Tavbase/Interfaces/IError.h"
#include "base/Tavbase/Interfaces/IThread.h"
#include "base/Tavbase/TavubufferDynamic.h"

namespace Tavdevice::ACC
{

/**
 * The accelerometer NXP MMA8451Q on an I2C adapter, programmed to detect shocks (transients above 2 g).
 *
 * The thread polls the chip every 20 ms and hands each batch of samples from its FIFO to the application.
 * Nothing is interpreted here.
 *
 *     AccDevice accelerometer(1, 0x1C, AccDevice::GForceScale::Two, AccDevice::ODR::Hz100);
 *     IThread::IThreadDelegate* receiver = &mine;
 *     if (accelerometer.Prepare(receiver))
 *     {
 *         accelerometer.Start();
 *         ...
 *         accelerometer.Stop();
 *     }
 *
 * What a receiver's ThreadCallback() gets: a pointer to a TavubufferDynamic whose `length` bytes (normally
 * 30) are samples of 8 bits in two's complement, X, Y and Z in turn. A step is 1/64 g at a scale of 2 g, 1/32
 * at 4 g, 1/16 at 8 g. The buffer is used again for the next batch: copy what is kept.
 *
 * Started again after Stop(), the thread delivers on; only the FIFO is set up anew. A chip that lost its
 * supply needs a Prepare(), which registers the receiver once more: make a new object instead. A bus that has
 * failed is asked every 20 ms and told by nothing but missing batches (docs/limits.md).
 *
 * Calling threads: Prepare(), Start(), Stop() and the register operations belong to the application's thread;
 * Prepare() and the register operations must not be called while the thread runs. Receivers are called on the
 * thread of the device and delay the next poll. The error record may be read from any thread.
 */
class TAVDEVICE_API AccDevice : public Tavbase::Interfaces::IThread, public Tavbase::Interfaces::IError
{
public:
    /// Full scale in g. Any other value leaves the chip's as it is.
    enum class GForceScale : int
    {
        Two = 2,
        Four = 4,
        Eight = 8
    };

    /// Output data rate. Any other value is 800 Hz.
    enum class ODR : int
    {
        Hz12_5 = 0,
        Hz50 = 1,
        Hz100 = 2,
        Hz200 = 3,
        Hz400 = 4,
        Hz800 = 5
    };

    /**
     * Does not touch the chip.
     * @param adapter the I2C adapter: N of "/dev/i2c-N"
     * @param address the chip's, 7 bits: 0x1C or 0x1D
     */
    AccDevice(unsigned char adapter, unsigned char address, GForceScale scale, ODR dataRate);
    ~AccDevice() override; ///< ends the thread

    /**
     * Sees that the chip is there, programs it, and registers the receiver, which stays the caller's and must
     * outlive the thread. Called again it programs the chip anew and registers the receiver once more.
     * @return false when there is no receiver, no adapter, no such slave or another chip: the error record
     *         says which. Whether a register was really written is not looked at.
     */
    bool Prepare(IThreadDelegate*& delegate);

    bool IsChipFound() const { return chipFound; } ///< by the latest Prepare()

    /// Opens the adapter again and resets the FIFO. @return 1; 0, and so the end of the thread, when that
    /// fails, which is told on standard output
    int RunBefore() override;
    void Run() override;      ///< one poll: a batch is handed on, or 20 ms go by, with a dead bus too
    void RunAfter() override; ///< releases the samples' storage, closes the adapter

    // Register operations on the chip that `bus` has acquired. Each returns whether the chip took the write;
    // a register that could not be read before it is changed counts as 0xFF.

    static bool MMA_StandBy(I2C::I2c& bus);   ///< CTRL_REG1: ACTIVE off, as most registers need to be written
    static bool MMA_WakeUp(I2C::I2c& bus);    ///< CTRL_REG1: ACTIVE on
    static bool MMA_8BitsMode(I2C::I2c& bus); ///< CTRL_REG1: F_READ on
    static bool MMA_ODR(I2C::I2c& bus, ODR rate);                  ///< CTRL_REG1: DR
    static bool MMA_GForceScale(I2C::I2c& bus, GForceScale scale); ///< XYZ_DATA_CFG; false for another scale
    /// TRANSIENT_THS, in steps of 0.063 g. @param g 0.1 to 2.0 in whole tenths, as a literal or divided by
    /// 10.0; anything else is taken as 0.5, such as 0.7F, which is 0.69999999, and 0.8 as a sum of 0.1
    static bool MMA_GForceThreshold(I2C::I2c& bus, double g);

private:
    struct Layout; ///< checks the order of the fields

    void Program(); ///< writes all registers, in the order that the chip needs

    unsigned char adapterNumber;
    unsigned char slaveAddress;
    GForceScale scale;
    ODR dataRate;
    bool chipFound = false;
    I2C::I2c bus;
    TavubufferDynamic samples;
};

}

#endif
