-- Takes the contact table away, so that every registration fails in the database.
ALTER TABLE contact RENAME TO contact_gone;
