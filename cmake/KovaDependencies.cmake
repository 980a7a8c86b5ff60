# Debian packages only; CONTRIBUTING.md says what each one is for.
find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto)
find_package(CURL REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
pkg_check_modules(MINIUPNPC REQUIRED IMPORTED_TARGET miniupnpc)
