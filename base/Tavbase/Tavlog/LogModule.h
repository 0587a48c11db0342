#ifndef BASE_TAVBASE_TAVLOG_LOGMODULE_H
#define BASE_TAVBASE_TAVLOG_LOGMODULE_H

#include "base/Tavbase/Tavlog/EnumString.h"

namespace Tavbase::Tavlog
{

/// The parts of the system that may tag a line.
enum class LogModule : int
{
    Tavthread = 0,
    Tavaq = 1,
    FaceRec = 2,
    Sdw = 3,
    DaD = 4,
    CELL = 5,
    LT = 6,
    WNET = 7,
    CONFIG = 8,
    Event = 9,
    Accelerometer = 10,
    RamDisk = 11,
    Report = 12,
    Vdb = 13,
    EventRecovery = 14
};

/// The names that a line shows.
template <>
class TAVBASE_API EnumString<LogModule> : public EnumStringBase<EnumString<LogModule>, LogModule>
{
public:
    /// For EnumStringBase.
    static void RegisterEnumerators()
    {
        RegisterEnumerator(LogModule::Tavthread, "Tavthread");
        RegisterEnumerator(LogModule::Tavaq, "Tavaq");
        RegisterEnumerator(LogModule::FaceRec, "FaceRec");
        RegisterEnumerator(LogModule::Sdw, "Sdw");
        RegisterEnumerator(LogModule::DaD, "DaD");
        RegisterEnumerator(LogModule::CELL, "CELL");
        RegisterEnumerator(LogModule::LT, "LT");
        RegisterEnumerator(LogModule::WNET, "WNET");
        RegisterEnumerator(LogModule::CONFIG, "CONFIG");
        RegisterEnumerator(LogModule::Event, "Event");
        RegisterEnumerator(LogModule::Accelerometer, "Accelerometer");
        RegisterEnumerator(LogModule::RamDisk, "RamDisk");
        RegisterEnumerator(LogModule::Report, "Report");
        RegisterEnumerator(LogModule::Vdb, "Vdb");
        RegisterEnumerator(LogModule::EventRecovery, "EventRecovery");
    }
};

}

#endif
