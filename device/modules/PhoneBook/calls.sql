CREATE TABLE calls (id INTEGER PRIMARY KEY, number TEXT NOT NULL, direction TEXT NOT NULL, started TEXT, seconds INTEGER);
CREATE TABLE favourites (contact INTEGER PRIMARY KEY, label TEXT, speed_dial INTEGER UNIQUE);
CREATE TABLE signalling_trace (id INTEGER PRIMARY KEY, packet BLOB);
WITH RECURSIVE counter(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM counter WHERE n < 250)
INSERT INTO calls SELECT n, '+49 89 5550' || printf('%03d', n % 90),
    CASE n % 4 WHEN 0 THEN 'missed' WHEN 1 THEN 'outgoing' ELSE 'incoming' END,
    datetime('2026-03-01 08:00:00', '+' || (n * 37) || ' minutes'),
    CASE n % 4 WHEN 0 THEN 0 ELSE n * 13 % 900 END FROM counter;
INSERT INTO favourites VALUES (1, 'Jürgen', 1), (2, 'O''Brien''s desk', 2), (6, 'tmp_1 is no table here', NULL);
INSERT INTO signalling_trace VALUES (1, randomblob(400)), (2, randomblob(400));
