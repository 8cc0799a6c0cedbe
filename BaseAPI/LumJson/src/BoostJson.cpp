// The part of Boost.JSON that is not in its headers, compiled into this library.
#include <boost/json/src.hpp>
