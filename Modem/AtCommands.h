#ifndef MODEM_ATCOMMANDS_H
#define MODEM_ATCOMMANDS_H

namespace Tavdevice::Modem::AtCommands
{

// The module's USB interfaces.
constexpr const char* MAIN_PORT = "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0";
constexpr const char* ALTERNATE_PORT =
    "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if02-port0";

// How long an answer may take, in polling cycles of 100 ms.
constexpr int SHORT_CYCLES = 4;
constexpr int DETACH_CYCLES = 900;
constexpr int DEACTIVATE_CYCLES = 1500;
constexpr int OPERATOR_CYCLES = 1800;

/// The text of a command, or its format for printf(), and the cycles for its answer.
struct Command
{
    const char* text;
    int cycles = SHORT_CYCLES;
};

// 3GPP TS 27.007 and, where the name begins with Q, the module's own.
constexpr Command MODULE_IMEI = {"AT+CGSN\r\n"};
constexpr Command SIM_IMSI = {"AT+CIMI\r\n"};
constexpr Command SIM_ICCID = {"AT+QCCID\r\n"};
constexpr Command IDENTIFICATION = {"ATI\r\n"};
constexpr Command VOLTAGE = {"AT+CBC\r\n"};
constexpr Command NETWORK_TIME = {"AT+QLTS\r\n"};
constexpr Command SIGNAL_QUALITY = {"AT+CSQ\r\n"};

constexpr Command REGISTRATION = {"AT+CREG?\r\n"};
constexpr Command REPORT_REGISTRATION = {"AT+CREG=2\r\n"};
constexpr Command REPORT_GPRS_REGISTRATION = {"AT+CGREG=2\r\n"};
constexpr Command LIST_OPERATORS = {"AT+COPS=?\r\n", OPERATOR_CYCLES};
constexpr Command CURRENT_OPERATOR = {"AT+COPS?\r\n", OPERATOR_CYCLES};
constexpr Command SELECT_AUTOMATICALLY = {"AT+COPS=0\r\n", OPERATOR_CYCLES};
constexpr Command SELECT_OPERATOR = {"AT+COPS=1,2,\"%d\",2\r\n", OPERATOR_CYCLES}; // numeric, UTRAN

constexpr Command POWER_SAVE = {"AT+QCFG=\"pwrsavedtr\",%d\r\n"};
constexpr Command SEARCH_MODE = {"AT+QCFG=\"nwscanmode\",%d,1\r\n"}; // 1: at once
constexpr Command BAND = {"AT+QCFG=\"band\",%d,1\r\n"};
constexpr Command LOW_VOLTAGE_LIMIT = {"AT+QCFG=\"vbatt\",-2,%d,%d\r\n"};
constexpr Command SLEEP_SETTING = {"AT+QSCLK?\r\n"};
constexpr Command HANG_UP = {"ATH\r\n", DETACH_CYCLES};
constexpr Command DEACTIVATE_CONTEXT = {"AT+CGACT=0,1\r\n", DEACTIVATE_CYCLES};
constexpr Command DETACH = {"AT+CGATT=0\r\n", DETACH_CYCLES};
constexpr Command POWER_DOWN = {"AT+QPOWD=1\r\n"};

}

#endif
