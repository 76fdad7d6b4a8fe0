-- The statements of one routing lookup (LocationService::lookupContacts with
-- the request URI sip:4930999999@bench.velm.test), as the server logged them, for pgbench
-- in simple protocol. Nobody has that number.
SELECT velm_users.node_id FROM velm_users,public_address,contact_set WHERE public_address.handle='4930999999' AND public_address.sip_domain='bench.velm.test' AND contact_set.csid=public_address.csid AND velm_users.sid=contact_set.sid;
SELECT handle, sip_domain, csid, scope, public_address_id FROM public_address WHERE  handle='4930999999' AND sip_domain='bench.velm.test';
