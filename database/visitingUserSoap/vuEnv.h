// The SOAP envelope of the visiting-profile call: no header entries, the
// standard SOAP 1.1 and 1.2 faults. soapcpp2 makes the global header and
// fault functions that the gSOAP runtime calls by name from this empty file.
