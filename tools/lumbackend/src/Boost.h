// Asio and Beast, compiled once for all sources.
#ifndef LUM_BACKEND_BOOST_H
#define LUM_BACKEND_BOOST_H

#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#endif  // LUM_BACKEND_BOOST_H
