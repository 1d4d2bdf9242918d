CREATE TABLE reminder (id INTEGER PRIMARY KEY, title TEXT, starts TEXT, minutes_before INTEGER);
CREATE TABLE broadcast (id INTEGER PRIMARY KEY, title TEXT, starts TEXT);
INSERT INTO reminder VALUES
    (1, 'Nachrichten', '2026-03-02 20:00', 5),
    (2, 'L''été à la mer', '2026-03-04 21:15', 15),
    (3, 'Concert; part 2', '2026-03-07 18:30', NULL);
WITH RECURSIVE counter(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM counter WHERE n < 500)
INSERT INTO broadcast SELECT n, 'Programme ' || n, datetime('2026-03-01', '+' || (n * 30) || ' minutes') FROM counter;
