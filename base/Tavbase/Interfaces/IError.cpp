#include "base/Tavbase/Interfaces/IError.h"

namespace Tavbase::Interfaces
{

IError::IError() = default;

IError::IError(const IError& other)
{
    *this = other;
}

IError& IError::operator=(const IError& other)
{
    if (this != &other)
    {
        const std::scoped_lock both(access, other.access);
        record = other.record;
        recorded = other.recorded;
    }
    return *this;
}

IError::~IError() = default;

void IError::SetError(const std::string& message, const std::string& where, bool replace, bool keepPlace)
{
    const std::scoped_lock lock(access);
    if (recorded && !replace)
    {
        return;
    }
    record.message = message;
    record.where = keepPlace ? where : std::string();
    recorded = true;
}

void IError::SetError(const std::exception& e, const std::string& where, bool replace, bool keepPlace)
{
    SetError(std::string(e.what()), where, replace, keepPlace);
}

void IError::ResetError()
{
    const std::scoped_lock lock(access);
    record.message.clear();
    record.where.clear();
    record.errorNumber = 0;
    recorded = false;
}

bool IError::HasError() const
{
    const std::scoped_lock lock(access);
    return recorded;
}

IError::Record IError::GetError() const
{
    const std::scoped_lock lock(access);
    return record;
}

std::string IError::GetErrorMessage() const
{
    return GetError().message;
}

std::string IError::GetErrorPlace() const
{
    return GetError().where;
}

int IError::GetErrorNumber() const
{
    return GetError().errorNumber;
}

std::string IError::GetNamespaceName() const
{
    return GetError().nameSpace;
}

std::string IError::GetClassName() const
{
    return GetError().className;
}

void IError::SetErrorSource(const std::string& nameSpace, const std::string& className)
{
    const std::scoped_lock lock(access);
    record.nameSpace = nameSpace;
    record.className = className;
}

void IError::SetErrorNumber(int number)
{
    const std::scoped_lock lock(access);
    record.errorNumber = number;
}

}
