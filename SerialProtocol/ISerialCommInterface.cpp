#include "SerialProtocol/ISerialCommInterface.h"

namespace SerialProtocol
{

ISerialCommInterface::~ISerialCommInterface() = default;

}
