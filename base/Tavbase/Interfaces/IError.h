#ifndef BASE_TAVBASE_INTERFACES_IERROR_H
#define BASE_TAVBASE_INTERFACES_IERROR_H

#include "base/Export.h"
#include "base/ThreadSafety.h"

#include <exception>
#include <mutex>
#include <string>

namespace Tavbase::Interfaces
{

/**
 * The record of an object's last error: a message, the place (the operation that failed), an error number,
 * and the namespace and class of the object it belongs to.
 *
 * Threads: every operation may be called from any thread at any time; a reader gets whole values. Two
 * getters called one after the other may see two different errors: GetError() gives one error as a whole.
 *
 * Copying an object copies its record.
 */
class TAVBASE_API IError
{
public:
    /// One error, taken in one piece.
    struct Record
    {
        std::string message;   ///< what happened; empty when no error is recorded
        std::string where;     ///< the operation that failed
        int errorNumber = 0;   ///< the system's errno, 0 when none belongs to the error
        std::string nameSpace; ///< namespace of the object's class, for example "Tavdevice"
        std::string className; ///< the object's class, for example "GpsDevice"
    };

    IError();                               ///< no error is recorded
    IError(const IError& other);            ///< with its record
    IError& operator=(const IError& other); ///< takes its record
    virtual ~IError();

    /**
     * Records an error. The error number is left as it is (SetErrorNumber() sets it).
     * @param message what happened
     * @param where   the name of the operation that failed
     * @param replace true: an error recorded earlier is replaced; false: the earlier one is kept
     * @param keepPlace true: `where` is recorded too; false: the place is left empty
     */
    void SetError(const std::string& message, const std::string& where, bool replace, bool keepPlace);

    /// As above, with e.what() as the message.
    void SetError(const std::exception& e, const std::string& where, bool replace, bool keepPlace);

    /// Forgets message, place and error number; the names of namespace and class stay.
    void ResetError();

    bool HasError() const;                ///< true from SetError() to ResetError()
    Record GetError() const;              ///< empty texts and 0 when no error is recorded, but for the names
    std::string GetErrorMessage() const;  ///< Record::message
    std::string GetErrorPlace() const;    ///< Record::where
    int GetErrorNumber() const;           ///< Record::errorNumber
    std::string GetNamespaceName() const; ///< Record::nameSpace
    std::string GetClassName() const;     ///< Record::className

protected:
    /// For the constructor of the derived class: whose errors these are.
    void SetErrorSource(const std::string& nameSpace, const std::string& className);

    void SetErrorNumber(int number); ///< the errno that belongs to the error about to be recorded

private:
    mutable std::mutex access;
    Record record TAV_GUARDED_BY(access);
    bool recorded TAV_GUARDED_BY(access) = false;
};

}

#endif
