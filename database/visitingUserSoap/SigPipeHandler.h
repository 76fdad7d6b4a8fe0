// sigPipeHandler: keeps a dropped SOAP connection from ending the process.
#ifndef VELM_SIGPIPEHANDLER_H
#define VELM_SIGPIPEHANDLER_H

// Installed for SIGPIPE around the remote visiting-profile request, so that
// a connection the remote service drops does not end the process. Writes one
// line to standard output and returns.
extern "C" void sigPipeHandler(int signal);

#endif
