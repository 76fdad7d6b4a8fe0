// The getVisitingProfile call, written on the generated serialisers: the
// generated stub reads whatever element the body holds as the response,
// while this one reads only getVisitingProfileResponse and takes anything
// else as the fault it may be.
#include "VisitingProfileService.h"
#include "visitingUser_soapH.h"

namespace visitingUser_soap {

namespace {

const char* const SOAP11_ENCODING = "http://schemas.xmlsoap.org/soap/encoding/";

int putRequest(struct soap* soap, const ns4__getVisitingProfile& request) {
    if (soap_envelope_begin_out(soap) || soap_putheader(soap) || soap_body_begin_out(soap) ||
        soap_put_ns4__getVisitingProfile(soap, &request, "ns4:getVisitingProfile", "") || soap_body_end_out(soap) ||
        soap_envelope_end_out(soap))
        return soap->error;
    return SOAP_OK;
}

} // namespace

int soap_call_ns4__getVisitingProfile(struct soap* soap, const char* soap_endpoint, const char* soap_action,
                                      char* handle, char* domain, int& subscriberId) {
    soap->encodingStyle = SOAP11_ENCODING;
    if (soap_endpoint == nullptr)
        soap_endpoint = VELM_VISITING_LOCATION;
    if (soap_action == nullptr)
        soap_action = VELM_VISITING_ACTION;
    ns4__getVisitingProfile request;
    soap_default_ns4__getVisitingProfile(soap, &request);
    request.handle = handle;
    request.domain = domain;

    soap_begin(soap);
    soap_serializeheader(soap);
    soap_serialize_ns4__getVisitingProfile(soap, &request);
    if (soap_begin_count(soap))
        return soap->error;
    // Without chunking, HTTP needs the length first: the message is written
    // once only to count it.
    if ((soap->mode & SOAP_IO_LENGTH) && putRequest(soap, request))
        return soap->error;
    if (soap_end_count(soap))
        return soap->error;
    if (soap_connect(soap, soap_endpoint, soap_action) || putRequest(soap, request) || soap_end_send(soap))
        return soap_closesock(soap);

    soap_default_int(soap, &subscriberId);
    if (soap_begin_recv(soap) || soap_envelope_begin_in(soap) || soap_recv_header(soap) || soap_body_begin_in(soap))
        return soap_closesock(soap);
    ns4__getVisitingProfileResponse* response =
        soap_get_ns4__getVisitingProfileResponse(soap, nullptr, "ns4:getVisitingProfileResponse", nullptr);
    if (response == nullptr || soap->error) {
        if (soap->error == SOAP_TAG_MISMATCH && soap->level == 2)
            return soap_recv_fault(soap, 0);
        return soap_closesock(soap);
    }
    if (soap_body_end_in(soap) || soap_envelope_end_in(soap) || soap_end_recv(soap))
        return soap_closesock(soap);
    subscriberId = response->subscriberId;
    return soap_closesock(soap);
}

} // namespace visitingUser_soap
