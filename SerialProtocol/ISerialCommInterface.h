#ifndef SERIALPROTOCOL_ISERIALCOMMINTERFACE_H
#define SERIALPROTOCOL_ISERIALCOMMINTERFACE_H

#include "base/Export.h"
#include "base/Tavbase/TavubufferDynamic.h"

namespace SerialProtocol
{

/// The operations of a peripheral that speaks the command protocol; ISerialComm tells what each does.
class TAVDEVICE_API ISerialCommInterface
{
public:
    virtual ~ISerialCommInterface();

    // In this order: it is that of the table of virtual operations.
    virtual bool OnSend(TavubufferDynamic& frame) = 0;  ///< sends a frame
    virtual bool OnRead(TavubufferDynamic& buffer) = 0; ///< takes one byte from the line
    virtual bool SendCmdMsg(unsigned char command) = 0; ///< sends the frame of a command
    virtual bool ReadCmdMsg(unsigned int expected) = 0; ///< receives a response of that length
    virtual int ParseRcvMsg(unsigned char* out) = 0;    ///< decodes the response
};

}

#endif
