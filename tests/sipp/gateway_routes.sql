-- A gateway for numbers: contact set 900 with one permanent contact that
-- keeps the dialled user, reached through an address map for 555 numbers.
INSERT INTO subscriber (sid, auth_user_id) VALUES (900, 'gateway');
INSERT INTO contact_set (csid, sid) VALUES (900, 900);
INSERT INTO contact (csid, address, qvalue, expires, permanent)
    VALUES (900, 'sip:$user@gw.example.net:5060', '1.0', 0, true);
INSERT INTO address_map (handle, csid, pattern, priority)
    VALUES ('gateway', 900, '^sip:555[0-9]+@example\.com$', 1);
