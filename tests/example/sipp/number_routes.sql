-- Routes for numbers that are no subscriber's: a PBX reached by the digit
-- prefix 777 (contact set 901), and a gateway for 555 numbers reached by an
-- address map (contact set 900) whose contact keeps the dialled user.
INSERT INTO subscriber (sid, auth_user_id) VALUES (900, 'gateway'), (901, 'pbx');
INSERT INTO contact_set (csid, sid) VALUES (900, 900), (901, 901);
INSERT INTO contact (csid, address, qvalue, expires, permanent) VALUES
    (900, 'sip:$user@gw.example.net:5060', '1.0', 0, true),
    (901, 'sip:pbx@pbx.example.net:5060', '1.0', 0, true);
INSERT INTO address_map (handle, csid, pattern, priority)
    VALUES ('gateway', 900, '^sip:555[0-9]+@example\.com$', 1);
INSERT INTO prefix_map (prefix, csid) VALUES ('777', 901);
