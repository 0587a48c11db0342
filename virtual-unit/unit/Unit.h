#ifndef VIRTUAL_UNIT_UNIT_UNIT_H
#define VIRTUAL_UNIT_UNIT_UNIT_H

#include "virtual-unit/peripherals/Accelerometer.h"
#include "virtual-unit/peripherals/BuzzerBoard.h"
#include "virtual-unit/peripherals/CellularModule.h"
#include "virtual-unit/peripherals/EventDriver.h"
#include "virtual-unit/peripherals/GpsReceiver.h"
#include "virtual-unit/peripherals/HidBridge.h"
#include "virtual-unit/peripherals/I2cAdapter.h"
#include "virtual-unit/peripherals/KeyReader.h"
#include "virtual-unit/peripherals/Vehicle.h"
#include "virtual-unit/unit/ObservedPorts.h"
#include "virtual-unit/unit/UnitOptions.h"

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace VirtualUnit
{

/**
 * The whole emulated unit: its devices, and the ports at which an application finds them.
 *
 * Calling threads: any may change the devices (the accessors from Gps() on), and use Traffic() and State();
 * the rest belongs to one.
 */
class Unit
{
public:
    using Clock = std::chrono::steady_clock;

    /// A port, and what people call it.
    struct Port
    {
        /// How it is spoken to.
        enum class Kind
        {
            Serial,
            Messages, ///< and ioctls
            I2c
        };

        std::string name; ///< "gps", "reader", "modem", "modem-2", "buzzer", "i2c", "sounder" or "events"
        std::string path;
        Kind kind = Kind::Serial;
    };

    static std::vector<Port> Ports(const UnitOptions& options);

    static std::string Path(const UnitOptions& options,
                            const std::string& name); ///< of the port of that name

    /// A device and the port that serves it.
    template <class Device, class Served>
    class Fitted
    {
    public:
        Fitted(Device& itself, Served& itsPort) : device(itself), port(itsPort) {}

        /// Runs `function(Device&)` while the device stands still.
        template <class Function>
        void Change(Function&& function)
        {
            port.Locked([&] { std::forward<Function>(function)(device); });
        }

    private:
        Device& device;
        Served& port;
    };

    /// @throws Values::Wrong when a file that the options name cannot be used
    explicit Unit(const UnitOptions& options);
    Unit(const Unit&) = delete;
    Unit& operator=(const Unit&) = delete;
    ~Unit() = default;

    /// What goes over a port. Listeners are added before the service begins.
    PortTraffic& Traffic(const std::string& path) { return ports.Traffic(path); }

    /// Puts the devices behind their ports. @throws std::system_error when the system gives no terminals or
    /// sockets
    void BeginService();

    const DeviceTable& Devices() const { return ports.Devices(); }

    /// Takes the ports away, after what is under way has arrived. What the devices did can still be asked
    /// for.
    void EndService();

    /// A port and, for people, what stands behind it and how it is.
    struct Status
    {
        std::string name;
        std::string path;
        std::string state;
    };

    std::vector<Status> State(); ///< of each port, during the service

    /// The numbers that tell one module and SIM from others: IMEI, IMSI and ICCID.
    std::vector<std::string> Secrets() const;

    /// Tells, of the port of that name, that its device has come or left; that of the module is told by
    /// itself.
    void TellPresence(const std::string& name, bool there);

    std::string PathOf(const std::string& name) const { return Path(options, name); } ///< of a port

    Clock::time_point Begin() const { return begin; }

    CardSlot& Card() { return Devices().Card(); } ///< it has a lock of its own

    PowerSupply& Power() { return Devices().Power(); } ///< it has a lock of its own

    CellularModule& Modem() { return *modem; } ///< it has a lock of its own

    Vehicle& Car() { return *vehicle; } ///< it has a lock of its own

    // The devices, during the service.
    Fitted<GpsReceiver, ServedSerialLine> Gps() { return {*gps, *gpsPort}; }

    Fitted<KeyReader, ServedSerialLine> Reader() { return {*reader, *readerPort}; }

    Fitted<BuzzerBoard, ServedSerialLine> Buzzer() { return {*buzzer, *buzzerPort}; }

    Fitted<Accelerometer, ServedDriver> Chip() { return {accelerometer, *adapterPort}; }

    Fitted<I2cAdapter, ServedDriver> Adapter() { return {*adapter, *adapterPort}; }

    Fitted<HidBridge, ServedDriver> Sounder() { return {*bridge, *bridgePort}; }

    Fitted<EventDriver, ServedDriver> Events() { return {*events, *eventsPort}; }

    // The same, afterwards.
    BuzzerBoard& EndedBuzzer() { return *buzzer; }

    HidBridge& EndedSounder() { return *bridge; }

    EventDriver& EndedEvents() { return *events; }

private:
    std::shared_ptr<Vehicle> FitVehicle();
    GpsReceiver::Options FitGps() const;
    void FitMotion();
    void FitIgnition();
    void ResetHub(bool held);
    std::string GpsState();
    std::string ReaderState();
    std::string ModemState() const;
    std::string BuzzerState();
    std::string AdapterState();
    std::string SounderState();
    std::string EventsState();

    Clock::time_point begin = Clock::now();
    UnitOptions options;
    std::chrono::sys_seconds present; ///< UTC when receiver and module are switched on

    std::shared_ptr<Vehicle> vehicle; ///< fitted with `options`, as what follows is
    std::shared_ptr<GpsReceiver> gps;
    std::shared_ptr<KeyReader> reader;
    std::shared_ptr<CellularModule> modem;
    std::shared_ptr<BuzzerBoard> buzzer;
    Accelerometer accelerometer;
    std::shared_ptr<I2cAdapter> adapter;
    std::shared_ptr<HidBridge> bridge;
    std::shared_ptr<EventDriver> events;

    /// What the hub's reset has taken off the bus, and gives back.
    struct BehindHub
    {
        bool modem = false;
        bool buzzer = false;
        bool sounder = false;
    };

    BehindHub reset; ///< guarded by the lock of the events' port

    ObservedPorts ports; ///< ended before the devices that they serve
    ServedSerialLine* gpsPort = nullptr;
    ServedSerialLine* readerPort = nullptr;
    ServedSerialLine* buzzerPort = nullptr;
    ServedDriver* adapterPort = nullptr;
    ServedDriver* bridgePort = nullptr;
    ServedDriver* eventsPort = nullptr;
};

}

#endif
