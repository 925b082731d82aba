#!/usr/bin/env bash
# Fails unless the shared object exports exactly the C functions declared in include/ and the
# Hok::Log names listed below, and every one of them.
set -euo pipefail
lib=$1
include_dir=$(cd "$(dirname "$0")/../../include" && pwd)

# The C interface: every KRV_* function declared in the public headers. Declarations start in the
# first column; comments (and their continuation lines) and preprocessor lines never do.
c_names=$(grep -h '^[A-Za-z_]' "$include_dir"/*.h | grep -o '\bKRV_[A-Za-z0-9_]*[[:space:]]*(' |
  tr -d ' (' | sort -u)

# The class interface, demangled; two C++ constructors or destructors share one name.
cxx_names=$(sort -u <<'EOF'
Hok::Log::CreateLogger(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&, std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&)
Hok::Log::FiniLogging()
Hok::Log::FlushLogging(unsigned int)
Hok::Log::GetLogAppId[abi:cxx11]()
Hok::Log::GetLogLevel()
Hok::Log::GetLogger(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&)
Hok::Log::InitLogging(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&, std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&, unsigned int, Hok::Log::LogLevel, Hok::Log::LogMode)
Hok::Log::IsLogEnabled(Hok::Log::LogLevel)
Hok::Log::IsLogInited()
Hok::Log::LogStream::LogStream(Hok::Log::LogStream&&)
Hok::Log::LogStream::LogStream(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&, unsigned int, Hok::Log::LogLevel, Hok::Log::Logger const&)
Hok::Log::LogStream::operator<<(Hok::Log::LogBin16 const&)
Hok::Log::LogStream::operator<<(Hok::Log::LogBin32 const&)
Hok::Log::LogStream::operator<<(Hok::Log::LogBin64 const&)
Hok::Log::LogStream::operator<<(Hok::Log::LogBin8 const&)
Hok::Log::LogStream::operator<<(Hok::Log::LogHex16 const&)
Hok::Log::LogStream::operator<<(Hok::Log::LogHex16Pre const&)
Hok::Log::LogStream::operator<<(Hok::Log::LogHex32 const&)
Hok::Log::LogStream::operator<<(Hok::Log::LogHex32Pre const&)
Hok::Log::LogStream::operator<<(Hok::Log::LogHex64 const&)
Hok::Log::LogStream::operator<<(Hok::Log::LogHex64Pre const&)
Hok::Log::LogStream::operator<<(Hok::Log::LogHex8 const&)
Hok::Log::LogStream::operator<<(Hok::Log::LogHex8Pre const&)
Hok::Log::LogStream::operator<<(Hok::Log::LogLevel)
Hok::Log::LogStream::operator<<(bool)
Hok::Log::LogStream::operator<<(char const*)
Hok::Log::LogStream::operator<<(double)
Hok::Log::LogStream::operator<<(float)
Hok::Log::LogStream::operator<<(int)
Hok::Log::LogStream::operator<<(long)
Hok::Log::LogStream::operator<<(short)
Hok::Log::LogStream::operator<<(signed char)
Hok::Log::LogStream::operator<<(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&)
Hok::Log::LogStream::operator<<(unsigned char)
Hok::Log::LogStream::operator<<(unsigned int)
Hok::Log::LogStream::operator<<(unsigned long)
Hok::Log::LogStream::operator<<(unsigned short)
Hok::Log::LogStream::~LogStream()
Hok::Log::Logger::Destroy()
Hok::Log::Logger::LogDebug(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&, unsigned int) const
Hok::Log::Logger::LogError(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&, unsigned int) const
Hok::Log::Logger::LogFatal(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&, unsigned int) const
Hok::Log::Logger::LogInfo(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&, unsigned int) const
Hok::Log::Logger::LogSec(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&, unsigned int) const
Hok::Log::Logger::LogVerbose(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&, unsigned int) const
Hok::Log::Logger::LogWarn(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&, unsigned int) const
Hok::Log::MdlLogReg(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&, void (*)(unsigned int, unsigned int, char const*, unsigned int, char const*))
Hok::Log::MdlLogUnreg(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&)
Hok::Log::SetLogLevel(Hok::Log::LogLevel)
Hok::Log::operator|(Hok::Log::LogMode, Hok::Log::LogMode)
EOF
)

expected=$(printf '%s\n%s\n' "$c_names" "$cxx_names" | sed '/^$/d' | sort -u)
exported=$(nm -D --defined-only "$lib" | awk '{print $3}' | c++filt | sort -u)
[ -n "$exported" ] || { echo "no exported symbols in $lib"; exit 1; }

unexpected=$(comm -13 <(echo "$expected") <(echo "$exported"))
missing=$(comm -23 <(echo "$expected") <(echo "$exported"))
[ -z "$unexpected" ] || sed 's/^/unexpected export: /' <<< "$unexpected"
[ -z "$missing" ] || sed 's/^/missing export: /' <<< "$missing"
echo "$(wc -l <<< "$exported") exported names checked"
[ -z "$unexpected" ] && [ -z "$missing" ]
