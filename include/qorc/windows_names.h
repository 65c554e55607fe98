/// @file
/// Names of the library that <windows.h> also defines, as macros: VOID (of
/// C_CHAR, C_STRING and C_DATE) and the BAUD_ and PARITY_ constants of
/// C_SERIAL. Where <windows.h> came first, its macros of these names are
/// undefined here, so that the library's names stand in its headers and in
/// the code that includes them; a host that includes <windows.h> includes it
/// before the library's headers. What the macros stood for remains: void,
/// and the CBR_ rates and the parity values of a DCB.
///
/// Each header that declares one of the names includes this one; it has no
/// include guard, so that a <windows.h> included between two of them is
/// answered again.
#ifdef _WIN32
#undef VOID
#undef BAUD_110
#undef BAUD_300
#undef BAUD_600
#undef BAUD_1200
#undef BAUD_2400
#undef BAUD_4800
#undef BAUD_9600
#undef BAUD_14400
#undef BAUD_19200
#undef BAUD_38400
#undef BAUD_56000
#undef BAUD_57600
#undef BAUD_115200
#undef BAUD_128000
#undef BAUD_256000
#undef PARITY_NONE
#undef PARITY_ODD
#undef PARITY_EVEN
#undef PARITY_MARK
#undef PARITY_SPACE
#endif
