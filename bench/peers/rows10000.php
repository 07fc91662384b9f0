<?php
// The 10,000-row page in PHP: every record ordered by name, each value through
// htmlspecialchars, in the markup that kiv-server's rows10000.html and `sqlite3 -html` write.
// scripts/bench.sh fills in the database as for page25.php.
$db = new PDO('@DSN@', @USER@, null, [PDO::ATTR_ERRMODE => PDO::ERRMODE_EXCEPTION, PDO::ATTR_PERSISTENT => @PERSISTENT@]);
$select = $db->prepare('SELECT "Name", "City", "Age", "Email", "Phone" FROM "@TABLE@" ORDER BY "Name", "@ID@" LIMIT 10000');
$select->execute();

function h($value)
{
    return htmlspecialchars((string)$value, ENT_QUOTES | ENT_SUBSTITUTE | ENT_HTML401, 'ISO-8859-1');
}

header('Content-Type: text/html; charset=ISO-8859-1');
while ($row = $select->fetch(PDO::FETCH_NUM)) {
    echo '<TR><TD>', h($row[0]), "</TD>\n<TD>", h($row[1]), "</TD>\n<TD>", h($row[2]), "</TD>\n<TD>", h($row[3]),
        "</TD>\n<TD>", h($row[4]), "</TD>\n</TR>\n";
}
