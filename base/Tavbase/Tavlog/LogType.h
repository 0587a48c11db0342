#ifndef BASE_TAVBASE_TAVLOG_LOGTYPE_H
#define BASE_TAVBASE_TAVLOG_LOGTYPE_H

namespace Tavbase::Tavlog
{

/// The severity of a line. Any other value is allowed and gives a line without a tag.
enum class LogType : int
{
    Info = 0,    ///< no tag
    Warning = 1, ///< "[WARNING]"
    Error = 2    ///< "[ERROR]"
};

}

#endif
