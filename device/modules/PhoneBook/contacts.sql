PRAGMA user_version = 7;
CREATE TABLE contact (
    id INTEGER PRIMARY KEY,
    family_name TEXT NOT NULL,
    given_name TEXT,
    number TEXT,
    note TEXT
);
CREATE TABLE picture (contact INTEGER REFERENCES contact(id), image BLOB);
CREATE INDEX contact_by_name ON contact (family_name COLLATE NOCASE, given_name);
CREATE VIEW reachable AS SELECT id, family_name, given_name FROM contact WHERE number IS NOT NULL;
INSERT INTO contact VALUES
    (1, 'Müller', 'Jürgen', '+49 30 5550112', NULL),
    (2, 'O''Brien', 'Siobhán', '+353 1 555 0134', 'says "call after six"'),
    (3, '山田', '太郎', '+81 3 5550 1188', '会社の番号'),
    (4, 'Иванова', 'Ольга', '+7 495 555 01 71', 'дача: с мая по сентябрь'),
    (5, 'García Márquez', NULL, NULL, ''),
    (6, 'Ångström', 'Åsa', '+46 8 555 010 22', 'line one
line two	after a tab'),
    (7, 'INSERT INTO', 'tmp_0', '+1 202 555 0147', 'a name that looks like a statement; DROP TABLE contact; --'),
    (8, 'Ali', 'علي', '+20 2 5550 1904', '100 % right-to-left'),
    (9, 'Smiley', '😀', '+44 20 7946 0018', '$HOME `id` \n %1');
WITH RECURSIVE counter(n) AS (SELECT 10 UNION ALL SELECT n + 1 FROM counter WHERE n < 400)
INSERT INTO contact SELECT n, 'Colleague ' || n, CASE n % 3 WHEN 0 THEN NULL ELSE 'Given ' || (n * 7 % 101) END,
    '+49 89 5550' || printf('%03d', n), NULL FROM counter;
INSERT INTO picture VALUES
    (1, x'89504E470D0A1A0A0000000D49484452000000100000001008060000001FF3FF61'),
    (3, x'00FF27220A0D5C00'),
    (4, x''),
    (8, NULL);
