<?php
// The 25-row page as a PHP developer writes it: PDO, prepared statements, every value through
// htmlspecialchars, the paging footer computed from a COUNT query. scripts/bench.sh fills in
// the database: SQLite's file, or PostgreSQL (PDO_PGSQL) with the table kiv-server reads,
// over a persistent connection per php-fpm worker as kiv-server's workers keep theirs.
$city = isset($_GET['city']) ? (string)$_GET['city'] : '';
$page = isset($_GET['page']) ? max(1, (int)$_GET['page']) : 1;
$perPage = 25;

$db = new PDO('@DSN@', @USER@, null, [PDO::ATTR_ERRMODE => PDO::ERRMODE_EXCEPTION, PDO::ATTR_PERSISTENT => @PERSISTENT@]);
$count = $db->prepare('SELECT COUNT(*) FROM "@TABLE@" WHERE "City" = ?');
$count->execute([$city]);
$total = (int)$count->fetchColumn();

$select = $db->prepare('SELECT "Name", "City", "Age", "Email", "Phone" FROM "@TABLE@" WHERE "City" = ? ORDER BY "Name", "@ID@" LIMIT ? OFFSET ?');
$select->bindValue(1, $city);
$select->bindValue(2, $perPage, PDO::PARAM_INT);
$select->bindValue(3, ($page - 1) * $perPage, PDO::PARAM_INT);
$select->execute();
$rows = $select->fetchAll(PDO::FETCH_ASSOC);

function h($value)
{
    return htmlspecialchars((string)$value, ENT_QUOTES | ENT_SUBSTITUTE | ENT_HTML401, 'ISO-8859-1');
}

$offset = ($page - 1) * $perPage;
$firstIndex = $rows ? $offset + 1 : 0;
$lastIndex = $rows ? $offset + count($rows) : 0;
$lastPage = (int)ceil($total / $perPage);
$prevPage = $page > 1 ? $page - 1 : 0;
$nextPage = $page * $perPage >= $total ? 0 : $page + 1;
header('Content-Type: text/html; charset=ISO-8859-1');
?>
<!DOCTYPE html>
<html><head><meta charset="ISO-8859-1"><title>People by city</title></head>
<body>
<h1>People in <?= h($city) ?></h1>
<table>
<tr><th>Name</th><th>City</th><th>Age</th><th>Email</th><th>Phone</th></tr>
<?php foreach ($rows as $row): ?>

<tr><td><?= h($row['Name']) ?></td><td><?= h($row['City']) ?></td><td><?= h($row['Age']) ?></td><td><?= h($row['Email']) ?></td><td><?= h($row['Phone']) ?></td></tr>
<?php endforeach; ?>

</table>
<p>Showing <?= $firstIndex ?>-<?= $lastIndex ?> of <?= $total ?> (page <?= $page ?> of <?= $lastPage ?>)</p>
<p><a href="?city=<?= h($city) ?>&amp;page=<?= $prevPage ?>">Previous</a> | <a href="?city=<?= h($city) ?>&amp;page=<?= $nextPage ?>">Next</a></p>
</body></html>
